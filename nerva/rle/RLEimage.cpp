#include "nerva/rle/RLEimage.h"

#include <new>

#include "nerva/internal/report.h"

namespace nerva {

std::shared_ptr<RLEimage> RLEimage_new()
{
    RLEimage* raw = new (std::nothrow) RLEimage{0, 0, {}};
    if (!raw) {
        detail::report(MESSAGES_STDERR, "RLEimage_new(): calloc failed !\n");
        return nullptr;
    }
    return std::shared_ptr<RLEimage>(raw);
}

std::shared_ptr<RLEimage> RLEimage_initialize(std::shared_ptr<RLEimage> img, int width, int height)
{
    if (!img) img = RLEimage_new();
    if (!img) return nullptr;
    img->width = width;
    img->height = height;
    img->lines.resize(height > 0 ? static_cast<size_t>(height) : 0);
    for (auto& line : img->lines) line = std::make_shared<RLEline>(RLEline{0, 0, nullptr});
    return img;
}

std::shared_ptr<RLEline> RLEimage_get_line(std::shared_ptr<RLEimage> img, int y)
{
    if (!img) return nullptr;
    return img->lines[static_cast<size_t>(y)];
}

std::shared_ptr<RLEimage> RLEimage_free(std::shared_ptr<RLEimage> img)
{
    if (img) img->lines.clear();
    return nullptr;
}

}  // namespace nerva
