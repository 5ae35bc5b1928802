// Change detection and its neighbours per frame, against OpenCV's 8-bit
// equivalents, at 768x576 (vtest's own grey frames) and vtest scaled to
// 1920x1080 and 3840x2160, in one run:
//   nerva fused     detect_changes (difference, threshold, learning in one pass)
//   nerva separate  abs_difference + grey_thresholding + update
//   OpenCV          absdiff + threshold + addWeighted
//   cvtColor        BGR to grey, the conversion the luma decode saves
//   runs+labels     the segmenter on the fused masks
//   CCL             connectedComponentsWithStats on the same masks
//   open3+close7    morphologyEx with elliptic kernels, the demo's clean-up
//   bits 3+7        the program's clean-up (nerva_pipeline::CleanUp), the
//                   same masks byte for byte, on bits
// and, in a second table, the running average and its segmentation, exact
// and with steps 4,2: detect_changes then RLEsegm_segmentKAP on the mask,
// against ChangeRows read by RLEsegm_segment_rows (rows detected as they
// are read, no mask).
// Each figure is the median over the frames of the CPU time of one frame.
//
//   nerva_change_times [frames]     (NERVA_BENCH_VIDEO overrides vtest.avi)
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>
#include <vector>

#include <opencv2/imgproc.hpp>
#include <opencv2/videoio.hpp>

#include "clean_up.h"
#include "nerva/nerva.h"

namespace {

// The thread's own CPU time: on a shared machine wall time also counts the
// waits for a core.
double thread_ms()
{
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return t.tv_sec * 1e3 + t.tv_nsec / 1e6;
}

template <typename Work>
double median_ms(int frames, Work work)
{
    std::vector<double> ms;
    for (int i = 0; i < frames; ++i) {
        const double t = thread_ms();
        work(i);
        ms.push_back(thread_ms() - t);
    }
    std::nth_element(ms.begin(), ms.begin() + ms.size() / 2, ms.end());
    return ms[ms.size() / 2];
}

nerva::image* wrap(cv::Mat& m)
{
    nerva::image* img = nerva::make_image(nerva::GREY_IMG, 0, 0);
    img->type = nerva::GREY_IMG;
    img->width = static_cast<unsigned>(m.cols);
    img->height = static_cast<unsigned>(m.rows);
    img->bytes_per_pixel = 1;
    img->capacity = static_cast<unsigned>(m.total());
    img->data = m.data;
    return img;
}

void unwrap(nerva::image* img)
{
    img->capacity = 0;  // the Mat owns the pixels
    nerva::destroy_image(img);
}

// CPU ms per frame of change detection plus segmentation, the mask written
// and read back, then in one pass: exact, then with steps 4,2.
struct WithSegmentation {
    double separate[2], one_pass[2];
};

WithSegmentation run_size(const std::vector<cv::Mat>& colour, cv::Size size)
{
    const int n = static_cast<int>(colour.size());
    std::vector<cv::Mat> bgr(colour.size()), grey(colour.size());
    for (int i = 0; i < n; ++i) {
        if (size == colour[i].size()) bgr[i] = colour[i];
        else cv::resize(colour[i], bgr[i], size, 0, 0, cv::INTER_LINEAR);
        cv::cvtColor(bgr[i], grey[i], cv::COLOR_BGR2GRAY);
    }
    const float rate = 0.01f;
    const unsigned threshold = 25;
    nerva::rectangle all{0, 0, size.width - 1, size.height - 1, size.width, size.height};

    cv::Mat bg = grey[0].clone(), mask(size, CV_8UC1), difference(size, CV_8UC1), converted;
    nerva::image *bg_img = wrap(bg), *mask_img = wrap(mask), *diff_img = wrap(difference);
    std::vector<nerva::image*> frames;
    for (cv::Mat& g : grey) frames.push_back(wrap(g));
    std::vector<cv::Mat> masks(colour.size());

    for (int i = 0; i < n; ++i) {  // the masks the segmenters are timed on
        nerva::detect_changes(bg_img, frames[i], rate, threshold, &all, mask_img);
        masks[i] = mask.clone();
    }
    grey[0].copyTo(bg);
    const double fused =
        median_ms(n, [&](int i) { nerva::detect_changes(bg_img, frames[i], rate, threshold, &all, mask_img); });
    grey[0].copyTo(bg);
    const double separate = median_ms(n, [&](int i) {
        nerva::abs_difference(frames[i], bg_img, &all, diff_img);
        nerva::grey_thresholding(diff_img, threshold, &all, mask_img);
        nerva::update(bg_img, frames[i], rate, &all);
    });
    cv::Mat bg_float, weighted_bg;
    grey[0].copyTo(weighted_bg);
    const double opencv = median_ms(n, [&](int i) {
        cv::absdiff(grey[i], weighted_bg, difference);
        cv::threshold(difference, mask, threshold - 1, 255, cv::THRESH_BINARY);
        cv::addWeighted(grey[i], rate, weighted_bg, 1.0 - rate, 0.0, weighted_bg);
    });
    const double convert = median_ms(n, [&](int i) { cv::cvtColor(bgr[i], converted, cv::COLOR_BGR2GRAY); });

    auto segm = std::make_shared<nerva::MV_RLEsegm>();
    nerva::RLEsegm_init_privateKAP(segm, 0, size.width - 1, 0, size.height - 1, size.width, size.height);
    nerva::RLEsegm_count_reused_blobs(segm, true);
    const double segment = median_ms(n, [&](int i) { nerva::RLEsegm_segmentKAP(masks[i], segm); });
    nerva::RLEsegm_free_private(segm);
    cv::Mat labels, stats, centroids;
    const double ccl =
        median_ms(n, [&](int i) { cv::connectedComponentsWithStats(masks[i], labels, stats, centroids, 4, CV_32S); });
    const cv::Mat open3 = cv::getStructuringElement(cv::MORPH_ELLIPSE, {3, 3});
    const cv::Mat close7 = cv::getStructuringElement(cv::MORPH_ELLIPSE, {7, 7});
    cv::Mat opened, closed;
    const double clean = median_ms(n, [&](int i) {
        cv::morphologyEx(masks[i], opened, cv::MORPH_OPEN, open3);
        cv::morphologyEx(opened, closed, cv::MORPH_CLOSE, close7);
    });
    nerva_pipeline::CleanUp people(3, 7);
    const double clean_bits = median_ms(n, [&](int i) {
        people.apply(masks[i].data, masks[i].step, closed.data, closed.step, size.width, size.height);
    });

    double foreground = 0;
    for (const cv::Mat& m : masks) foreground += cv::countNonZero(m) / double(m.total()) / n;
    std::printf("%4dx%-4d  %7.3f  %7.3f  %7.3f  %5.2fx  %7.3f  %7.3f  %7.3f  %7.3f  %7.3f  %4.1f%%\n", size.width,
                size.height, fused, separate, opencv, opencv / fused, convert, segment, ccl, clean, clean_bits,
                100 * foreground);

    WithSegmentation with{};
    // The scaled frames hold more blobs than the pool: the notices would bury the tables.
    nerva::set_message_sink([](nerva::message_stream_t, const char*, size_t, void*) {}, nullptr);
    for (int sampled = 0; sampled < 2; ++sampled) {
        auto s = std::make_shared<nerva::MV_RLEsegm>();
        nerva::RLEsegm_init_privateKAP(s, 0, size.width - 1, 0, size.height - 1, size.width, size.height);
        nerva::RLEsegm_set_steps(s, sampled ? 4 : 1, sampled ? 2 : 1);
        nerva::RLEsegm_count_reused_blobs(s, true);
        grey[0].copyTo(bg);
        with.separate[sampled] = median_ms(n, [&](int i) {
            nerva::detect_changes(bg_img, frames[i], rate, threshold, &all, mask_img);
            nerva::RLEsegm_segmentKAP(mask, s);
        });
        grey[0].copyTo(bg);
        nerva::ChangeRows rows;
        with.one_pass[sampled] = median_ms(n, [&](int i) {
            rows.begin(bg_img, frames[i], rate, threshold, &all);
            nerva::RLEsegm_segment_rows(rows, size.width, size.height, s);
            rows.finish();
        });
        nerva::RLEsegm_free_private(s);
    }
    nerva::set_message_sink(nullptr);

    for (nerva::image* img : frames) unwrap(img);
    for (nerva::image* img : {bg_img, mask_img, diff_img}) unwrap(img);
    return with;
}

}  // namespace

int main(int argc, char** argv)
{
    const char* env = std::getenv("NERVA_BENCH_VIDEO");
    const std::string path = env ? env : "/usr/share/doc/opencv-doc/examples/data/vtest.avi";
    const int wanted = argc > 1 ? std::atoi(argv[1]) : 60;
    cv::setNumThreads(1);  // core for core
    cv::VideoCapture video(path, cv::CAP_FFMPEG);
    std::vector<cv::Mat> colour;
    cv::Mat frame;
    while (static_cast<int>(colour.size()) < wanted && video.read(frame)) colour.push_back(frame.clone());
    if (colour.empty()) {
        std::fprintf(stderr, "nerva_change_times: cannot read '%s'\n", path.c_str());
        return 1;
    }
    std::printf("CPU ms per frame (median of %zu), one thread; change detection = difference + threshold + learning\n",
                colour.size());
    std::printf("size       nerva     nerva    OpenCV  OpenCV/  cvtColor  runs+   OpenCV   open3+   bits     fore-\n");
    std::printf("           fused     separate         fused              labels  CCL      close7   3+7      ground\n");
    std::vector<std::pair<cv::Size, WithSegmentation>> with;
    for (cv::Size size : {colour[0].size(), cv::Size(1920, 1080), cv::Size(3840, 2160)})
        with.emplace_back(size, run_size(colour, size));
    std::printf(
        "\nchange detection + segmentation, CPU ms per frame: the mask written and read back, or rows\n"
        "detected as the segmenter reads them (ChangeRows, RLEsegm_segment_rows)\n");
    std::printf("size       steps 1,1:  mask    rows    rows/mask   steps 4,2:  mask    rows    rows/mask\n");
    for (const auto& [size, w] : with)
        std::printf("%4dx%-4d              %7.3f %7.3f  %5.2fx                 %7.3f %7.3f  %5.2fx\n", size.width,
                    size.height, w.separate[0], w.one_pass[0], w.one_pass[0] / w.separate[0], w.separate[1],
                    w.one_pass[1], w.one_pass[1] / w.separate[1]);
    return 0;
}
