// Runs the nerva-blobs program as a user would, on inputs made here: a small
// video of a square moving over a textured background, mask images, and
// broken inputs.
#include <unistd.h>

#include <algorithm>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/videoio.hpp>

#include "program_test_support.h"

namespace {

constexpr int kWidth = 160, kHeight = 120, kFrames = 40, kSide = 16;
constexpr int kEmptyFrames = 5;  // the background alone, before the square enters

cv::Rect square_at(int f)
{
    const int t = f - kEmptyFrames;
    return t < 0 ? cv::Rect() : cv::Rect(8 + 3 * t, 30 + 2 * t, kSide, kSide);
}

class NervaBlobs : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        dir_ = fs::path(NERVA_BLOBS_SCRATCH) / std::to_string(getpid());  // CTest may run these side by side
        fs::create_directories(dir_);
        cv::Mat bg(kHeight, kWidth, CV_8UC3);  // a textured background
        for (int y = 0; y < kHeight; ++y)
            for (int x = 0; x < kWidth; ++x) {
                const int check = ((x / 8) + (y / 8)) % 2 ? 40 : 0;
                bg.at<cv::Vec3b>(y, x) = cv::Vec3b(60 + check, 70 + check + x / 4, 80 + check + y / 4);
            }
        write_clip("square.avi", [&](int) { return bg.clone(); });
    }

    // kFrames frames at 25 a second: `background(f)` with the white square over it.
    template <class Background>
    static void write_clip(const std::string& name, Background background)
    {
        cv::VideoWriter writer((dir_ / name).string(), cv::CAP_FFMPEG, cv::VideoWriter::fourcc('M', 'J', 'P', 'G'), 25,
                               cv::Size(kWidth, kHeight));
        ASSERT_TRUE(writer.isOpened());
        for (int f = 0; f < kFrames; ++f) {
            cv::Mat frame = background(f);
            if (!square_at(f).empty()) frame(square_at(f)).setTo(cv::Scalar(230, 230, 230));
            writer.write(frame);
        }
    }
    static void TearDownTestSuite() { fs::remove_all(dir_); }

    // Redirections in `args` come after ours and win; `limit` is a shell prefix such as a ulimit.
    static Result run(const std::string& args, const std::string& limit = "")
    {
        return run_in(dir_, "(" + limit + "exec '" NERVA_BLOBS_EXE "' >out.txt 2>err.txt " + args + ")");
    }

    // mask_0000.png ...: a box moving right and a still one of value 1 (any non-zero is foreground).
    static void write_masks(const fs::path& folder, int count)
    {
        fs::create_directories(folder);
        for (int f = 0; f < count; ++f) {
            cv::Mat m(48, 64, CV_8UC1, cv::Scalar(0));
            m(cv::Rect(2 + f, 3, 10, 6)).setTo(255);
            m(cv::Rect(40, 30, 5, 12)).setTo(1);
            cv::imwrite((folder / cv::format("mask_%04d.png", f)).string(), m);
        }
    }

    static inline fs::path dir_;
};

TEST_F(NervaBlobs, FollowsTheMovingSquareOnEveryFrame)
{
    const Result r = run("square.avi --min-pixels 20 -o blobs.jsonl --progress");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(r.out.empty()) << "JSON goes to --output only";
    const auto lines = json_lines(slurp(dir_ / "blobs.jsonl"));
    ASSERT_EQ(lines.size(), static_cast<size_t>(kFrames));
    for (int f = 0; f < kFrames; ++f) {
        SCOPED_TRACE("frame " + std::to_string(f));
        EXPECT_EQ(lines[f]["frame"], f);
        EXPECT_NEAR(lines[f]["time"].get<double>(), f / 25.0, 1e-6) << "the stream's clock";
        EXPECT_EQ(lines[f]["dropped"], 0) << "a file keeps every frame";
        const cv::Rect sq = square_at(f);
        ASSERT_EQ(lines[f]["blobs"].size(), sq.empty() ? 0u : 1u) << lines[f].dump();
        if (sq.empty()) continue;
        const json& b = lines[f]["blobs"][0];
        const std::vector<int> box = b["bbox"], want = {sq.x, sq.y, sq.x + kSide - 1, sq.y + kSide - 1};
        for (int k = 0; k < 4; ++k) EXPECT_NEAR(box[k], want[k], 2) << k;
        EXPECT_NEAR(b["npix"].get<int>(), kSide * kSide, 3 * kSide);
    }
    EXPECT_NE(r.err.find("nerva-blobs: 40 frames, blobs per frame: mean"), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("40/40 frames"), std::string::npos) << r.err;
}

// MP4 is written for browsers: H.264, without the encoder's chatter.
TEST_F(NervaBlobs, DrawsTheBoxOnAnnotatedFramesAVideoAndAnOverview)
{
    const Result r =
        run("square.avi --min-pixels 20 -q --annotate frames --every 10 --video-out annotated.mp4 "
            "--overview overview.png");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(std::distance(fs::directory_iterator(dir_ / "frames"), fs::directory_iterator()), 4);
    const cv::Mat annotated = cv::imread((dir_ / "frames" / "frame_000020.png").string());
    ASSERT_EQ(annotated.size(), cv::Size(kWidth, kHeight));
    cv::Mat outline;  // the box outline, pure magenta, just around the square
    cv::inRange(annotated(square_at(20) + cv::Size(8, 8) - cv::Point(4, 4)), cv::Scalar(255, 0, 255),
                cv::Scalar(255, 0, 255), outline);
    EXPECT_GT(cv::countNonZero(outline), 2 * kSide);
    cv::VideoCapture h264((dir_ / "annotated.mp4").string(), cv::CAP_FFMPEG);
    const int fourcc = static_cast<int>(h264.get(cv::CAP_PROP_FOURCC));
    EXPECT_EQ(std::string({char(fourcc), char(fourcc >> 8), char(fourcc >> 16), char(fourcc >> 24)}), "avc1");
    EXPECT_FALSE(cv::imread((dir_ / "overview.png").string()).empty());
}

TEST_F(NervaBlobs, AnExistingFileIsReadAsAFileEvenWhenItsNameLooksLikeAPattern)
{
    write_masks(dir_ / "named", 5);
    fs::copy_file(dir_ / "named" / "mask_0004.png", dir_ / "cam%20view.png", fs::copy_options::overwrite_existing);
    EXPECT_EQ(run("--masks 'cam%20view.png' -q").lines().at(0)["blobs"],
              run("--masks named/mask_0004.png -q").lines().at(0)["blobs"]);
}

TEST_F(NervaBlobs, AFrameOfAnotherSizeStopsTheRunAndKeepsWhatWasWritten)
{
    write_masks(dir_ / "sizes", 3);
    cv::imwrite((dir_ / "sizes" / "mask_0003.png").string(), cv::Mat(24, 32, CV_8UC1, cv::Scalar(255)));
    const Result r = run("--masks sizes -o sizes.jsonl");
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("frame 3 ('sizes/mask_0003.png') is 32x24, earlier frames are 64x48"), std::string::npos)
        << r.err;
    const auto kept = json_lines(slurp(dir_ / "sizes.jsonl"));
    ASSERT_EQ(kept.size(), 3u);
    for (int n = 0; n < 3; ++n) EXPECT_EQ(kept[n]["frame"], n);
}

// Specks of noise around the square: the default preset keeps the square
// alone, raw keeps everything, and options beside a preset win.
TEST_F(NervaBlobs, DefaultsKeepThingsAndDropSpecksWhileRawKeepsEverything)
{
    cv::RNG rng(7);
    write_clip("specks.avi", [&](int f) {
        cv::Mat frame(kHeight, kWidth, CV_8UC3, cv::Scalar(70, 70, 70));
        for (int k = 0; f > 0 && k < 20; ++k)
            frame(cv::Rect(rng.uniform(0, kWidth - 2), rng.uniform(0, kHeight - 2), 2, 2)).setTo(cv::Scalar::all(255));
        return frame;
    });

    const auto blob_counts = [&](const std::string& options) {
        std::vector<size_t> counts;
        for (const json& line : run("specks.avi -q " + options).lines()) counts.push_back(line["blobs"].size());
        return counts;
    };
    const std::vector<size_t> cleaned = blob_counts(""), raw = blob_counts("--preset raw");
    ASSERT_EQ(cleaned.size(), static_cast<size_t>(kFrames));
    ASSERT_EQ(raw.size(), static_cast<size_t>(kFrames));
    for (int f = kEmptyFrames; f < kFrames; ++f) {
        SCOPED_TRACE("frame " + std::to_string(f));
        EXPECT_EQ(cleaned[f], 1u) << "the square alone";
        EXPECT_GT(raw[f], 10u) << "the square and the specks";
    }
    EXPECT_EQ(blob_counts("--preset raw --min-pixels 1000"), std::vector<size_t>(kFrames, 0)) << "the option wins";
}

// A frame of more blobs than the pool holds: one line on standard error, and
// its JSON line says the list was cut and how many blobs there were.
TEST_F(NervaBlobs, AFrameOverTheBlobCapSaysSoOnceInItsLine)
{
    fs::create_directories(dir_ / "dots");
    cv::Mat dots(100, 120, CV_8UC1, cv::Scalar(0));
    for (int y = 0; y < dots.rows; y += 2)
        for (int x = 0; x < dots.cols; x += 2) dots.at<uchar>(y, x) = 255;  // 3000 single-pixel blobs
    cv::imwrite((dir_ / "dots" / "a.png").string(), dots);
    cv::imwrite((dir_ / "dots" / "b.png").string(), cv::Mat(100, 120, CV_8UC1, cv::Scalar(255)));

    const Result r = run("--masks dots -q");
    ASSERT_EQ(r.status, 0) << r.err;
    const std::vector<json> lines = r.lines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0]["truncated"], true);
    EXPECT_EQ(lines[0]["components"], 3000);
    EXPECT_LT(lines[0]["blobs"].size(), 3000u);
    EXPECT_FALSE(lines[1].contains("truncated")) << "a whole list says nothing";
    EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
}

// The examples --help gives run as shown, on a video and a folder of masks
// named as they are there (live sources aside).
TEST_F(NervaBlobs, TheExamplesOfTheHelpRun)
{
    const Result help = run("--help");
    ASSERT_EQ(help.status, 0);
    fs::copy_file(dir_ / "square.avi", dir_ / "street.avi", fs::copy_options::overwrite_existing);
    write_masks(dir_ / "masks", 3);
    std::istringstream lines(help.out);
    int ran = 0;
    for (std::string line; std::getline(lines, line);) {
        const std::string prefix = "  nerva-blobs ";
        if (line.rfind(prefix, 0) != 0 || line.find("://") != std::string::npos) continue;
        const Result r = run(line.substr(prefix.size()) + " >/dev/null");
        EXPECT_EQ(r.status, 0) << line << ": " << r.err;
        ++ran;
    }
    EXPECT_EQ(ran, 4);
}

TEST_F(NervaBlobs, MeasuresAddEachBlobsShapeWhenAsked)
{
    write_masks(dir_ / "shapes", 1);
    const json plain = run("--masks shapes -q").lines().at(0)["blobs"][1];
    EXPECT_FALSE(plain.contains("shape")) << plain.dump();
    const json still = run("--masks shapes --measures -q").lines().at(0)["blobs"][1];  // the 5 x 12 box
    ASSERT_TRUE(still.contains("shape")) << still.dump();
    EXPECT_EQ(still["shape"]["boundary_edges"], 34) << "each blob its own measures";
}

TEST_F(NervaBlobs, BadInputGivesOneLineAndTheRightStatus)
{
    std::ofstream(dir_ / "junk.avi") << std::string(20000, 'x');
    fs::create_directories(dir_ / "empty.avi");
    write_masks(dir_ / "bad", 1);
    const std::string png = slurp(dir_ / "bad" / "mask_0000.png");
    std::ofstream(dir_ / "bad" / "cut.png") << png.substr(0, png.size() / 2);
    std::ofstream(dir_ / "bad" / "huge.ppm") << "P6\n100000 100000\n255\n" << std::string(64, '\0');
    const auto video_size = fs::file_size(dir_ / "square.avi");
    fs::remove(dir_ / "linked.avi");
    fs::create_hard_link(dir_ / "square.avi", dir_ / "linked.avi");
    const std::tuple<const char*, int, const char*> cases[] = {
        // arguments, status, message
        {"missing.avi", 1, "input 'missing.avi' does not exist"},
        {"junk.avi", 1, "cannot decode 'junk.avi'"},
        {"empty.avi", 1, "holds no PNG, PGM, PPM or JPEG file"},
        {"none_%03d.png", 1, "no file matches 'none_%03d.png'"},
        // An output that is the input itself would destroy it, whatever its name.
        {"square.avi -o square.avi", 2, "--output: 'square.avi' is the input itself"},
        {"square.avi --video-out ./linked.avi", 2, "--video-out: './linked.avi' is the input itself"},
        {"square.avi --roi 1,2,3", 2, "--roi"},
        {"square.avi -o no/such/dir/out.jsonl", 1, "cannot write 'no/such/dir/out.jsonl'"},
        {"square.avi --video-out no/such/dir/v.avi", 1, "cannot write video"},
        {"square.avi --frobnicate", 2, "unknown option --frobnicate (see --help)"},
        // Misspelt options and other tools' names point at ours.
        {"square.avi --min-area 100", 2, "unknown option --min-area; did you mean --min-pixels?"},
        // Values that used to be read as 0 or passed the range checks.
        {"square.avi --threshold ''", 2, "--threshold: empty value"},
        {"square.avi --learning-rate nan", 2, "--learning-rate: must lie between 0 and 1"},
        // Kernels and pattern fields that would run for minutes or eat the memory.
        {"square.avi --close 2147483647", 2, "--close 2147483647: the kernel is larger"},
        {"'f_%2147483647d.png'", 2, "field width 2147483647 is too large (at most 20)"},
        // Decoders' own complaints are silenced: one line, naming the file.
        {"--masks bad/cut.png", 1, "cannot decode image 'bad/cut.png'"},
        {"--masks bad/huge.ppm", 1, "cannot decode image 'bad/huge.ppm'"},
        {"square.avi >/dev/full", 1, "cannot write to standard output: No space left on device"},
        {"square.avi --zone 'z:1,2;3,4'", 2, "--zone"},
        {"square.avi --line :1,2,3,4", 2, "--line ':1,2,3,4': expected NAME:coordinates"},
    };
    for (auto [args, status, message] : cases) {
        const Result r = run(args);
        SCOPED_TRACE(args);
        EXPECT_EQ(r.status, status) << r.err;
        EXPECT_EQ(r.err.rfind("nerva-blobs: ", 0), 0u) << r.err;
        EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
        EXPECT_NE(r.err.find(message), std::string::npos) << r.err;
    }
    EXPECT_EQ(fs::file_size(dir_ / "square.avi"), video_size) << "the input is left alone";

    // Port 1 answers nobody: a line per attempt, then the address by name.
    const Result live = run("http://127.0.0.1:1/cam.ts --reconnect 1");
    EXPECT_EQ(live.status, 1);
    for (const char* line : {"connecting to 'http://127.0.0.1:1/cam.ts' (attempt 1, next in 1 s)\n",
                             "connecting to 'http://127.0.0.1:1/cam.ts' (attempt 2, the last)\n",
                             "cannot open 'http://127.0.0.1:1/cam.ts': no answer, or not a stream that can be "
                             "decoded (2 attempts)\n"})
        EXPECT_NE(live.err.find(line), std::string::npos) << live.err;
}

TEST_F(NervaBlobs, AReaderThatHasGoneIsAnErrorNotACrash)
{
    // The reader closes its end of the pipe, then leaves a mark; the program
    // starts after the mark, so its first write meets a closed pipe. The
    // shell hands the program's own status through a file.
    fs::remove(dir_ / "reader_gone");
    const std::string cmd = "cd '" + dir_.string() +
                            "' && { until [ -e reader_gone ]; do sleep 0.05; done; '" NERVA_BLOBS_EXE
                            "' square.avi -q 2>pipe_err.txt; echo $? >pipe_status.txt; } | "
                            "{ exec 0<&-; touch reader_gone; }";
    ASSERT_EQ(std::system(cmd.c_str()), 0);
    EXPECT_EQ(slurp(dir_ / "pipe_status.txt"), "1\n");
    EXPECT_NE(slurp(dir_ / "pipe_err.txt").find("cannot write to standard output"), std::string::npos);
}

// A full disk (here a file size limit, with the same EFBIG a full disk gives
// as ENOSPC): the run says so in one line, and what it wrote stays usable.
TEST_F(NervaBlobs, AFullDiskStopsTheJsonOutputOnACompleteLine)
{
    const Result json_full = run("square.avi -q -o limited.jsonl", "ulimit -f 4; ");
    EXPECT_EQ(json_full.status, 1);
    EXPECT_EQ(json_full.err, "nerva-blobs: cannot write to limited.jsonl: File too large\n");
    const std::string text = slurp(dir_ / "limited.jsonl");
    ASSERT_FALSE(text.empty());
    EXPECT_EQ(text.back(), '\n') << "the file ends on a complete line";
    EXPECT_NO_THROW(json_lines(text));
}

TEST_F(NervaBlobs, AFullDiskUnderAnyOtherOutputIsOneLineAndStatusOne)
{
    for (const char* args :
         {"--video-out limited.avi", "--video-out limited.mkv", "--annotate limited", "--overview limited.png"}) {
        const Result r = run(std::string("square.avi -q -o /dev/null ") + args, "ulimit -f 4; ");
        EXPECT_EQ(r.status, 1) << args;
        EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
        EXPECT_NE(r.err.find("cannot write"), std::string::npos) << r.err;
    }
}

// A video cut short still gives its frames, and a warning.
TEST_F(NervaBlobs, AVideoCutShortGivesItsFramesAndAWarning)
{
    const std::string avi = slurp(dir_ / "square.avi");
    std::ofstream(dir_ / "cut.avi", std::ios::binary) << avi.substr(0, avi.size() / 3);
    const Result cut = run("cut.avi");
    EXPECT_EQ(cut.status, 0) << cut.err;
    const long decoded = static_cast<long>(cut.lines().size());
    EXPECT_GT(decoded, 0);
    EXPECT_LT(decoded, kFrames);
    EXPECT_NE(
        cut.err.find("warning: 'cut.avi' announced 40 frames, only " + std::to_string(decoded) + " could be decoded"),
        std::string::npos)
        << cut.err;
    EXPECT_EQ(run("square.avi -q").err, "") << "no warning for a whole file";
}

TEST_F(NervaBlobs, TracksTheSquareAndCountsItsCrossing)
{
    const Result r =
        run("square.avi --min-pixels 20 -o blobs.jsonl --line door:60,0,60,119 --mot tracks.txt "
            "--csv blobs.csv --zone 'right:80,0;159,0;159,119;80,119'");
    ASSERT_EQ(r.status, 0) << r.err;
    const auto lines = json_lines(slurp(dir_ / "blobs.jsonl"));
    ASSERT_EQ(lines.size(), static_cast<size_t>(kFrames));
    const json& last = lines.back();
    EXPECT_EQ(last["blobs"][0]["track"], 1);
    EXPECT_EQ(last["counts"]["door"]["out"], 1);
    EXPECT_EQ(last["counts"]["door"]["in"], 0);
    EXPECT_EQ(last["counts"]["right"]["inside"], 1);
    // A blob without a track yet says so.
    EXPECT_TRUE(lines[kEmptyFrames]["blobs"][0]["track"].is_null());
    EXPECT_NE(r.err.find("nerva-blobs: line door: in 0, out 1"), std::string::npos) << r.err;

    // MOT rows count frames from 1; the CSV has a header and a row per blob.
    size_t first_tracked = 0;
    while (first_tracked < lines.size() &&
           (lines[first_tracked]["blobs"].empty() || lines[first_tracked]["blobs"][0]["track"].is_null()))
        ++first_tracked;
    const std::string mot = slurp(dir_ / "tracks.txt");
    EXPECT_EQ(mot.substr(0, mot.find(',')), std::to_string(first_tracked + 1));
    const std::string csv = slurp(dir_ / "blobs.csv");
    EXPECT_EQ(std::count(csv.begin(), csv.end(), '\n'), 1 + kFrames - kEmptyFrames);
}

}  // namespace
