// OpenCV's image codecs and video I/O are loaded, through the module
// nerva-blobs-io.so, only by the runs that read or write pictures; a run that
// needs them and cannot load the module says so in one line.
#include <unistd.h>

#include <algorithm>

#include "program_test_support.h"

namespace {

const std::string kVtest = "/usr/share/doc/opencv-doc/examples/data/vtest.avi";

class IoModule : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        dir_ = fs::path(NERVA_BLOBS_SCRATCH) / ("io-" + std::to_string(getpid()));
        fs::create_directories(dir_);
    }
    static void TearDownTestSuite() { fs::remove_all(dir_); }

    // `env` prefixes the program's command line, e.g. "LD_DEBUG=files".
    static Result run(const fs::path& program, const std::string& args, const std::string& env = "")
    {
        fs::remove(dir_ / "out.jsonl");
        return run_in(dir_, env + " '" + program.string() + "' -q -o out.jsonl 2>err.txt " + args);
    }

    // The program alone in an installation-like folder: nothing beside it,
    // nothing under its ../lib/nerva.
    static fs::path lone_program()
    {
        const fs::path bin = dir_ / "alone" / "bin";
        fs::create_directories(bin);
        fs::copy_file(NERVA_BLOBS_EXE, bin / "nerva-blobs", fs::copy_options::overwrite_existing);
        return bin / "nerva-blobs";
    }

    static inline fs::path dir_;
};

bool mentions(const std::string& text, const std::string& word) { return text.find(word) != std::string::npos; }

TEST_F(IoModule, AVideoRunWithDefaultsLoadsNeitherCodecsNorVideoIo)
{
    const Result r = run(NERVA_BLOBS_EXE, "'" + kVtest + "'", "LD_DEBUG=files");
    EXPECT_EQ(r.status, 0);
    EXPECT_FALSE(mentions(r.err, "libopencv_imgcodecs"));
    EXPECT_FALSE(mentions(r.err, "libopencv_videoio"));
    EXPECT_FALSE(mentions(r.err, "nerva-blobs-io.so"));
}

TEST_F(IoModule, ARunWritingAPictureLoadsTheModule)
{
    const Result r = run(NERVA_BLOBS_EXE, "'" + kVtest + "' --overview sheet.png", "LD_DEBUG=files");
    EXPECT_EQ(r.status, 0);
    EXPECT_TRUE(mentions(r.err, "nerva-blobs-io.so"));
    EXPECT_TRUE(mentions(r.err, "libopencv_imgcodecs"));
}

// Status 1 as for any other failure while running, one line naming both
// places looked at, before any frame is read.
TEST_F(IoModule, WithoutTheModuleAPictureToWriteStopsTheRunInOneLine)
{
    const fs::path program = lone_program();
    const fs::path bin = fs::canonical(program.parent_path());
    const Result r = run(program, "'" + kVtest + "' --overview sheet.png");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
    EXPECT_TRUE(mentions(r.err, (bin / "nerva-blobs-io.so").string())) << r.err;
    const fs::path installed = (bin / NERVA_BLOBS_IO_FROM_BIN / "nerva-blobs-io.so").lexically_normal();
    EXPECT_TRUE(mentions(r.err, installed.string())) << r.err;
    EXPECT_TRUE(mentions(r.err, "No such file")) << r.err;
    EXPECT_EQ(slurp(dir_ / "out.jsonl"), "");
}

}  // namespace
