// PNG pictures and the recipes in them. Checksums are made good, or nothing but them would be tested.
#include "colour_recipe.h"
#include "harness.h"
#include "png_file.h"

#include <zlib.h>

using namespace fuzz;

namespace {

std::uint32_t big_endian(const std::string& bytes, std::size_t at)
{
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < 4; ++i)
        value = value << 8 | static_cast<unsigned char>(bytes[at + i]);
    return value;
}

// Chunks: length, four letters, data, checksum of letters and data.
void repair_checksums(std::string& file)
{
    for (std::size_t at = 8; at + 12 <= file.size();) {
        const std::size_t length = big_endian(file, at);
        if (length > file.size() - at - 12)
            return;
        auto sum = crc32(0, reinterpret_cast<const Bytef*>(file.data() + at + 4), static_cast<uInt>(length + 4));
        for (std::size_t i = 4; i-- > 0; sum >>= 8)
            file[at + 8 + length + i] = static_cast<char>(sum & 0xff);
        at += length + 12;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const Folder folder;
    std::string content(text_of(data, size));
    repair_checksums(content);
    const fs::path file = folder.write("picture.png", content);
    read_or_reject([&] {
        const PngPicture picture = read_png(file);
        const GreyImage& image = picture.image;
        const std::size_t pixels = image.pixels.size();
        demand(image.width > 0 && image.height > 0 &&
                   pixels == static_cast<std::size_t>(image.width) * static_cast<std::size_t>(image.height),
               "a picture has its pixels");
        demand(picture.rgb.size() == 3 * pixels && (image.marks.empty() || image.marks.size() == pixels),
               "every pixel has its colours and marks");
        if (is_colour_recipe(picture.text))
            colour_recipe_of(picture.text, file);
        else
            recipe_of(picture.text, file);
    });
    return 0;
}
