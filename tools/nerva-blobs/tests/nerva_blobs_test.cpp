// Runs the nerva-blobs program as a user would, on inputs made here: a small
// video of a square moving over a textured background, mask images, and
// broken inputs.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

#include <nlohmann/json.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/videoio.hpp>

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

constexpr int kWidth = 160, kHeight = 120, kFrames = 40;
constexpr int kSide = 16;
constexpr int kEmptyFrames = 5;  // the background alone, before the square enters

// The square's box in frame f, or an empty rect before it enters.
cv::Rect square_at(int f)
{
    if (f < kEmptyFrames) return {};
    const int t = f - kEmptyFrames;
    return {8 + 3 * t, 30 + 2 * t, kSide, kSide};
}

cv::Mat textured_background()
{
    cv::Mat bg(kHeight, kWidth, CV_8UC3);
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x) {
            const int check = ((x / 8) + (y / 8)) % 2 ? 40 : 0;
            bg.at<cv::Vec3b>(y, x) = cv::Vec3b(static_cast<uchar>(60 + check), static_cast<uchar>(70 + check + x / 4),
                                               static_cast<uchar>(80 + check + y / 4));
        }
    return bg;
}

struct Result {
    int status = -1;
    std::string out, err;
    std::vector<json> lines() const
    {
        std::vector<json> v;
        std::istringstream in(out);
        for (std::string line; std::getline(in, line);) v.push_back(json::parse(line));
        return v;
    }
};

std::string slurp(const fs::path& p)
{
    std::ifstream in(p, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

class NervaBlobs : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        // Per process: CTest may run these tests side by side.
        dir_ = fs::path(NERVA_BLOBS_SCRATCH) / std::to_string(getpid());
        fs::create_directories(dir_);
        cv::VideoWriter writer(video().string(), cv::CAP_FFMPEG, cv::VideoWriter::fourcc('M', 'J', 'P', 'G'), 25,
                               cv::Size(kWidth, kHeight));
        ASSERT_TRUE(writer.isOpened());
        const cv::Mat bg = textured_background();
        for (int f = 0; f < kFrames; ++f) {
            cv::Mat frame = bg.clone();
            if (!square_at(f).empty()) frame(square_at(f)).setTo(cv::Scalar(230, 230, 230));
            writer.write(frame);
        }
    }
    static void TearDownTestSuite() { fs::remove_all(dir_); }

    static fs::path video() { return dir_ / "square.avi"; }

    // Runs the program in the scratch folder with a shell command line.
    static Result run(const std::string& args)
    {
        const std::string cmd = "cd '" + dir_.string() + "' && '" NERVA_BLOBS_EXE "' " + args + " >out.txt 2>err.txt";
        const int raw = std::system(cmd.c_str());
        Result r;
        EXPECT_TRUE(WIFEXITED(raw)) << "ended by a signal: " << args;
        r.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
        r.out = slurp(dir_ / "out.txt");
        r.err = slurp(dir_ / "err.txt");
        return r;
    }

    // Masks of two boxes, one moving, as PNG files mask_0000.png ...
    static void write_masks(const fs::path& folder, int count)
    {
        fs::create_directories(folder);
        for (int f = 0; f < count; ++f) {
            cv::Mat m(48, 64, CV_8UC1, cv::Scalar(0));
            m(cv::Rect(2 + f, 3, 10, 6)).setTo(255);
            m(cv::Rect(40, 30, 5, 12)).setTo(1);  // any non-zero value is foreground
            char name[32];
            std::snprintf(name, sizeof name, "mask_%04d.png", f);
            cv::imwrite((folder / name).string(), m);
        }
    }

    static inline fs::path dir_;
};

TEST_F(NervaBlobs, FollowsTheMovingSquareOnEveryFrame)
{
    const Result r = run("square.avi --min-pixels 20");
    ASSERT_EQ(r.status, 0) << r.err;
    const auto lines = r.lines();
    ASSERT_EQ(lines.size(), static_cast<size_t>(kFrames));
    for (int f = 0; f < kFrames; ++f) {
        SCOPED_TRACE("frame " + std::to_string(f));
        const json& line = lines[f];
        EXPECT_EQ(line["frame"], f);
        const cv::Rect expected = square_at(f);
        if (expected.empty()) {
            EXPECT_TRUE(line["blobs"].empty());
            continue;
        }
        ASSERT_EQ(line["blobs"].size(), 1u) << line.dump();
        const json& b = line["blobs"][0];
        const std::vector<int> box = b["bbox"];
        EXPECT_NEAR(box[0], expected.x, 2);
        EXPECT_NEAR(box[1], expected.y, 2);
        EXPECT_NEAR(box[2], expected.x + kSide - 1, 2);
        EXPECT_NEAR(box[3], expected.y + kSide - 1, 2);
        EXPECT_EQ(b["width"], box[2] - box[0] + 1);
        EXPECT_EQ(b["height"], box[3] - box[1] + 1);
        EXPECT_NEAR(b["npix"].get<int>(), kSide * kSide, 3 * kSide);
        EXPECT_NEAR(b["xc"].get<int>(), expected.x + kSide / 2, 2);
        EXPECT_NEAR(b["yc"].get<int>(), expected.y + kSide / 2, 2);
    }
    EXPECT_NE(r.err.find("nerva-blobs: 40 frames, blobs per frame: mean"), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("median time per frame: decoding"), std::string::npos) << r.err;
}

TEST_F(NervaBlobs, Mog2FindsTheSquareToo)
{
    const Result r = run("square.avi --background mog2 --min-pixels 20 -q");
    ASSERT_EQ(r.status, 0) << r.err;
    const auto lines = r.lines();
    ASSERT_EQ(lines.size(), static_cast<size_t>(kFrames));
    const json& last = lines.back()["blobs"];
    ASSERT_FALSE(last.empty());
    const std::vector<int> box = last[0]["bbox"];
    const cv::Rect found(box[0], box[1], box[2] - box[0] + 1, box[3] - box[1] + 1);
    EXPECT_GT((found & square_at(kFrames - 1)).area(), kSide * kSide / 2);
}

TEST_F(NervaBlobs, MasksFromADirectoryOrAPatternAreSegmentedExactly)
{
    write_masks(dir_ / "masks", 6);
    for (const std::string input : {"masks", "masks/mask_%04d.png"}) {
        SCOPED_TRACE(input);
        const Result r = run("--masks " + input + " -q");
        ASSERT_EQ(r.status, 0) << r.err;
        const auto lines = r.lines();
        ASSERT_EQ(lines.size(), 6u);
        const json& blobs = lines[4]["blobs"];
        ASSERT_EQ(blobs.size(), 2u);
        EXPECT_EQ(blobs[0]["bbox"], json({6, 3, 15, 8}));
        EXPECT_EQ(blobs[0]["npix"], 60);
        EXPECT_EQ(blobs[1]["bbox"], json({40, 30, 44, 41}));
        EXPECT_EQ(blobs[1]["npix"], 60);
    }
    // The region of interest and the size filter drop blobs, never cut them.
    const Result roi = run("--masks masks --roi 30,20,34,28 -q");
    ASSERT_EQ(roi.status, 0) << roi.err;
    EXPECT_EQ(roi.lines()[0]["blobs"].size(), 1u);
    EXPECT_EQ(roi.lines()[0]["blobs"][0]["bbox"], json({40, 30, 44, 41}));
    const Result side = run("--masks masks --min-side 7 -q");
    EXPECT_EQ(side.lines()[0]["blobs"].size(), 0u) << "10x6 and 5x12 boxes both have a side below 7";
}

TEST_F(NervaBlobs, WritesAnnotatedFramesVideoAndOverview)
{
    const Result r = run("square.avi -o blobs.jsonl --annotate frames --every 10 --video-out annotated.avi "
                         "--overview overview.png --progress");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(r.out.empty()) << "JSON goes to --output only";
    const std::string jsonl = slurp(dir_ / "blobs.jsonl");
    EXPECT_EQ(std::count(jsonl.begin(), jsonl.end(), '\n'), kFrames);
    EXPECT_NE(r.err.find("40/40 frames"), std::string::npos) << r.err;

    std::vector<std::string> names;
    for (const auto& e : fs::directory_iterator(dir_ / "frames")) names.push_back(e.path().filename().string());
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::string>{"frame_000000.png", "frame_000010.png", "frame_000020.png",
                                               "frame_000030.png"}));
    const cv::Mat annotated = cv::imread((dir_ / "frames" / "frame_000020.png").string());
    ASSERT_EQ(annotated.size(), cv::Size(kWidth, kHeight));
    // The box outline is drawn in pure green just around the square.
    const cv::Rect sq = square_at(20);
    int green = 0;
    for (int x = sq.x - 3; x <= sq.x + sq.width + 2; ++x)
        for (int y : {sq.y - 3, sq.y - 2, sq.y - 1, sq.y, sq.y + 1})
            green += annotated.at<cv::Vec3b>(y, x) == cv::Vec3b(0, 255, 0);
    EXPECT_GT(green, sq.width);

    cv::VideoCapture cap((dir_ / "annotated.avi").string(), cv::CAP_FFMPEG);
    ASSERT_TRUE(cap.isOpened());
    int frames = 0;
    for (cv::Mat f; cap.read(f); ++frames) EXPECT_EQ(f.size(), cv::Size(kWidth, kHeight));
    EXPECT_EQ(frames, kFrames);
    EXPECT_FALSE(cv::imread((dir_ / "overview.png").string()).empty());
}

TEST_F(NervaBlobs, RowSamplingStaysExactColumnSamplingEmptiesRuns)
{
    // Rows around foreground are read in full, so a row step loses nothing.
    const Result rows = run("square.avi --steps 1,3 --min-pixels 20 -q");
    ASSERT_EQ(rows.status, 0) << rows.err;
    const Result exact = run("square.avi --min-pixels 20 -q");
    EXPECT_EQ(rows.out, exact.out);

    // A column step above 1 stores runs that end inside the region with their
    // last column before their first: the blobs come out empty, one per row.
    const Result cols = run("square.avi --steps 2,1 -q");
    ASSERT_EQ(cols.status, 0) << cols.err;
    const json blobs = cols.lines()[20]["blobs"];
    EXPECT_EQ(blobs.size(), static_cast<size_t>(kSide));
    for (const json& b : blobs) {
        EXPECT_EQ(b["width"], 0);
        EXPECT_EQ(b["npix"], 0);
    }
}

TEST_F(NervaBlobs, AReaderThatStopsEarlyGetsAnErrorNotACrash)
{
    // The shell reports the program's own status through a file: the pipe's
    // status would be head's.
    const std::string cmd = "cd '" + dir_.string() + "' && { '" NERVA_BLOBS_EXE
                            "' square.avi -q 2>pipe_err.txt; echo $? >pipe_status.txt; } | head -n 1 >/dev/null";
    ASSERT_EQ(std::system(cmd.c_str()), 0);
    EXPECT_EQ(slurp(dir_ / "pipe_status.txt"), "1\n");
    EXPECT_NE(slurp(dir_ / "pipe_err.txt").find("cannot write to standard output"), std::string::npos);
}

struct BadCase {
    const char* what;
    const char* args;
    int status;
    const char* message;
};

TEST_F(NervaBlobs, BadInputGivesOneLineAndTheRightStatus)
{
    std::ofstream(dir_ / "junk.avi") << std::string(20000, 'x');
    fs::create_directories(dir_ / "empty.avi");
    const BadCase cases[] = {
        {"missing file", "missing.avi", 1, "input 'missing.avi' does not exist"},
        {"not a video", "junk.avi", 1, "cannot decode 'junk.avi'"},
        {"folder without images", "empty.avi", 1, "holds no PNG, PGM, PPM or JPEG file"},
        {"pattern without match", "none_%03d.png", 1, "no file matches 'none_%03d.png'"},
        {"roi outside the frame", "square.avi --roi 150,100,20,10", 2, "lies outside the 160x120 frame"},
        {"malformed roi", "square.avi --roi 1,2,3", 2, "--roi"},
        {"column step below 1", "square.avi --steps 0,1", 2, "steps must be at least 1"},
        {"row step below 1", "square.avi --steps 1,-2", 2, "steps must be at least 1"},
        {"unwritable output", "square.avi -o no/such/dir/out.jsonl", 1, "cannot write 'no/such/dir/out.jsonl'"},
        {"unwritable video", "square.avi --video-out no/such/dir/v.avi", 1, "cannot write video"},
        {"unknown option", "square.avi --frobnicate", 2, "--frobnicate"},
        {"no input", "", 2, "input is required"},
    };
    for (const BadCase& c : cases) {
        SCOPED_TRACE(c.what);
        const Result r = run(c.args);
        EXPECT_EQ(r.status, c.status) << r.err;
        EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
        EXPECT_EQ(r.err.rfind("nerva-blobs: ", 0), 0u) << r.err;
        EXPECT_NE(r.err.find(c.message), std::string::npos) << r.err;
    }
}

TEST_F(NervaBlobs, FrameOfAnotherSizeStopsTheRunAndKeepsWhatWasWritten)
{
    write_masks(dir_ / "sizes", 3);
    cv::imwrite((dir_ / "sizes" / "mask_0003.png").string(), cv::Mat(24, 32, CV_8UC1, cv::Scalar(255)));
    const Result r = run("--masks sizes -o sizes.jsonl");
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("frame 3 ('sizes/mask_0003.png') is 32x24, earlier frames are 64x48"), std::string::npos)
        << r.err;
    std::ifstream in(dir_ / "sizes.jsonl");
    int n = 0;
    for (std::string line; std::getline(in, line); ++n) EXPECT_EQ(json::parse(line)["frame"], n);
    EXPECT_EQ(n, 3);
}

}  // namespace
