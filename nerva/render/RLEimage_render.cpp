#include "nerva/render/RLEimage_render.h"

#include <cstring>

#include "nerva/blob/RLEblob.h"
#include "nerva/image/image.h"
#include "nerva/image/image_draw.h"
#include "nerva/image/internal/image_pixels.h"
#include "nerva/internal/report.h"

namespace nerva {

using namespace detail;

namespace {

// Rows that both exist as lines and are counted by height: a freed image
// keeps its height but has no lines left.
int64_t readable_rows(const RLEimage& rle) { return min64(rle.height, static_cast<int64_t>(rle.lines.size())); }

// Calls visit(y, first, last) for every run of every readable row.
template <typename Visit>
void for_each_stored_run(const std::shared_ptr<RLEimage>& rle, Visit visit)
{
    for (int64_t y = 0; y < readable_rows(*rle); ++y) {
        const std::shared_ptr<RLEline> line = RLEimage_get_line(rle, static_cast<int>(y));
        if (!line || !line->segs) continue;
        for (int32_t k = 0; k < line->nb_segs; ++k) {
            const std::shared_ptr<segment>& run = line->segs[k];
            if (run) visit(y, int64_t{run->x_start}, int64_t{run->x_end});
        }
    }
}

// Sets the runs' bytes of img to value: from the byte of pixel (first, y)
// taken at three bytes per pixel, (last - first + 1) * bytes_per_pixel bytes.
void paint_runs(const std::shared_ptr<RLEimage>& rle, image* img, unsigned char value)
{
    if (!img->data) return;
    const size_t limit = buffer_bytes(img);
    for_each_stored_run(rle, [&](int64_t y, int64_t first, int64_t last) {
        first = max64(first, img->x_origin);
        last = min64(last, last_column(img));
        if (first > last || !contains(img, first, y)) return;
        const size_t start = pixel_index(img, first, y) * 3;
        if (start >= limit) return;
        size_t length = static_cast<size_t>(last - first + 1) * static_cast<size_t>(img->bytes_per_pixel);
        if (length > limit - start) length = limit - start;
        std::memset(img->data + start, value, length);
    });
}

}  // namespace

image* RLEimage_to_binaire(std::shared_ptr<RLEimage> rle, image* img)
{
    if (!rle) return nullptr;
    // A negative size would be read as a size of about four billion.
    if (!img && (rle->width < 0 || rle->height < 0)) return nullptr;
    if (img) clear_image(img);
    else img = make_image(COLOR_IMG_3BYTES, static_cast<unsigned>(rle->width), static_cast<unsigned>(rle->height));
    if (!img) return nullptr;
    if (rle->height < 1) return img;
    paint_runs(rle, img, 255);
    return img;
}

void RLEimage_to_binary_raw_gray(std::shared_ptr<RLEimage> rle, unsigned char* raw)
{
    if (!rle) return;
    if (!raw) {
        detail::report(
            MESSAGES_STDERR,
            "FATAL ERROR: RLEimage::RLEimage_to_binaire_raw_gray.\n Memory space for binary raw data MUST be "
            "allocated BEFORE calling this function. \n");
        detail::fatal_exit(1);
    }
    if (rle->height < 1) return;
    const int64_t width = rle->width;
    for_each_stored_run(rle, [&](int64_t y, int64_t first, int64_t last) {
        first = max64(first, 0);
        last = min64(last, width - 1);
        if (first <= last) std::memset(raw + y * width + first, 255, static_cast<size_t>(last - first + 1));
    });
}

int RLEimage_save_binaire(std::shared_ptr<RLEimage> rle, const char* path, std::shared_ptr<RLEblob> blobs)
{
    if (!rle) return -1;
    if (rle->width < 0 || rle->height < 0) {
        std::fprintf(stderr, "RLEimage_save_binaire(): run-length image of size %dx%d cannot be rendered\n", rle->width,
                     rle->height);
        return -1;
    }
    image* img = make_image(COLOR_IMG_3BYTES, static_cast<unsigned>(rle->width), static_cast<unsigned>(rle->height));
    img = RLEimage_to_binaire(rle, img);
    if (!img) return -1;
    for (std::shared_ptr<RLEblob> b = blobs; b; b = b->next) {
        if (draw_rectangle(&b->bbox, img) == -1) {
            detail::report(MESSAGES_STDERR, "RLEimage_save_binaire(): drawing rectangles on image failed.\n");
            destroy_image(img);
            return -1;
        }
    }
    if (save_image(img, path) == -1) {
        detail::report(MESSAGES_STDERR, "RLEimage_save_binaire(): saving image file %s failed\n",
                       path ? path : "(null)");
        destroy_image(img);
        return -1;
    }
    destroy_image(img);
    return 0;
}

void RLEimage_clear_binaire(std::shared_ptr<RLEimage> rle, image* img)
{
    if (!rle || !img || rle->height < 1) return;
    paint_runs(rle, img, 0);
}

}  // namespace nerva
