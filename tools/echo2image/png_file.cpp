#include "png_file.h"

#include "bad_input.h"
#include "open_file.h"

#include <utils_sse.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <csetjmp>
#include <cstring>
#include <exception>
#include <memory>

#include <png.h>

// libpng reports errors by longjmp. Functions that call setjmp here own nothing with a destructor, and what libpng calls
// back throws nothing.

namespace echo2image {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t signature_bytes = 8;
constexpr std::uint64_t most_pixels = std::uint64_t{1} << 29;
constexpr png_alloc_size_t most_text = 1 << 20; // bytes
constexpr int bytes_per_packed_pixel = 4;

using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

File open_for_reading(const fs::path& path)
{
    errno = 0;
    std::error_code error;
    if (fs::is_directory(path, error))
        throw BadInput(path.string() + ": a file is expected, found a folder");
    File file(open_file(path, "rb"), std::fclose);
    if (file == nullptr)
        throw BadInput(path.string() + ": cannot be opened: " + std::strerror(errno));
    return file;
}

// libpng's own words for what went wrong.
struct Complaint
{
    char text[200] = "";
};

void complain(png_structp png, png_const_charp message)
{
    auto* complaint = static_cast<Complaint*>(png_get_error_ptr(png));
    std::snprintf(complaint->text, sizeof complaint->text, "%s", message);
    png_longjmp(png, 1);
}

void ignore_warning(png_structp, png_const_charp) {}

struct Target
{
    OutputFile* file;
    std::exception_ptr failure;
};

bool write_to(Target& target, const void* data, std::size_t bytes) noexcept
{
    try {
        target.file->write(data, bytes);
        return true;
    } catch (...) {
        target.failure = std::current_exception();
        return false;
    }
}

void write_bytes(png_structp png, png_bytep data, std::size_t bytes)
{
    if (!write_to(*static_cast<Target*>(png_get_io_ptr(png)), data, bytes))
        png_error(png, "write error");
}

void flush_nothing(png_structp) {}

void read_bytes(png_structp png, png_bytep data, std::size_t bytes)
{
    if (std::fread(data, 1, bytes, static_cast<std::FILE*>(png_get_io_ptr(png))) != bytes)
        png_error(png, "the file ends early");
}

struct Writer
{
    png_structp png;
    png_infop info;
    explicit Writer(Complaint& complaint)
        : png(png_create_write_struct(PNG_LIBPNG_VER_STRING, &complaint, complain, ignore_warning)),
          info(png != nullptr ? png_create_info_struct(png) : nullptr)
    {
        if (info == nullptr)
            throw std::bad_alloc();
    }
    ~Writer() { png_destroy_write_struct(&png, &info); }
    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;
};

struct Reader
{
    png_structp png;
    png_infop info;
    explicit Reader(Complaint& complaint)
        : png(png_create_read_struct(PNG_LIBPNG_VER_STRING, &complaint, complain, ignore_warning)),
          info(png != nullptr ? png_create_info_struct(png) : nullptr)
    {
        if (info == nullptr)
            throw std::bad_alloc();
    }
    ~Reader() { png_destroy_read_struct(&png, &info, nullptr); }
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;
};

// Marked pixels keep their grey value as green, between full red and no blue: red to yellow.
constexpr std::uint8_t marked_red = 255;
constexpr std::uint8_t marked_blue = 0;

// `row` has room for packed pixels, and behind them for a plane of red and one of blue.
void pack(const GreyImage& image, int y, png_bytep row)
{
    const std::size_t width = static_cast<std::size_t>(image.width);
    const std::uint8_t* const grey = image.pixels.data() + static_cast<std::size_t>(y) * width;
    if (image.marks.empty()) {
        CUtils_SSE::BWToColour(row, grey, image.width, 255);
        return;
    }
    const std::uint8_t* const marks = image.marks.data() + static_cast<std::size_t>(y) * width;
    std::uint8_t* const red = row + bytes_per_packed_pixel * width;
    std::uint8_t* const blue = red + width;
    for (std::size_t x = 0; x < width; ++x) {
        red[x] = marks[x] != 0 ? marked_red : grey[x];
        blue[x] = marks[x] != 0 ? marked_blue : grey[x];
    }
    CUtils_SSE::RGBToColour(row, red, grey, blue, image.width, 255);
}

void pack(const ColourImage& image, int y, png_bytep row)
{
    const std::size_t start = static_cast<std::size_t>(y) * static_cast<std::size_t>(image.width);
    CUtils_SSE::RGBToColour(row, image.red.data() + start, image.green.data() + start, image.blue.data() + start, image.width,
                            255);
}

template <class Image>
void emit(png_structp png, png_infop info, const Image& image, png_const_textp text, int texts, png_bytep row)
{
    png_set_compression_level(png, 2); // speckle hardly gets smaller with more effort
    png_set_filter(png, PNG_FILTER_TYPE_BASE, PNG_FILTER_SUB);
    png_set_IHDR(png, info, static_cast<png_uint_32>(image.width), static_cast<png_uint_32>(image.height), 8,
                 PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    if (image.pixel_size > 1e-9) {
        const double per_metre = std::floor(1 / image.pixel_size + 0.5);
        if (per_metre >= 1)
            png_set_pHYs(png, info, static_cast<png_uint_32>(per_metre), static_cast<png_uint_32>(per_metre),
                         PNG_RESOLUTION_METER);
    }
    png_set_text(png, info, text, texts);
    png_write_info(png, info);
    // The packed pixels of the kernels are blue, green, red, fill.
    png_set_bgr(png);
    png_set_filler(png, 0, PNG_FILLER_AFTER);
    for (int y = 0; y < image.height; ++y) {
        pack(image, y, row);
        png_write_row(png, row);
    }
    png_write_end(png, info);
}

template <class Image>
bool try_to_emit(png_structp png, png_infop info, const Image& image, png_const_textp text, int texts, png_bytep row)
{
    if (setjmp(png_jmpbuf(png)) != 0)
        return false;
    emit(png, info, image, text, texts, row);
    return true;
}

bool read_header(png_structp png, png_infop info)
{
    if (setjmp(png_jmpbuf(png)) != 0)
        return false;
    png_read_info(png, info);
    return true;
}

bool start_rows(png_structp png, png_infop info)
{
    if (setjmp(png_jmpbuf(png)) != 0)
        return false;
    png_set_expand(png); // palettes and few bits
    png_set_gray_to_rgb(png);
    png_read_update_info(png, info);
    return true;
}

bool read_row(png_structp png, png_bytep row)
{
    if (setjmp(png_jmpbuf(png)) != 0)
        return false;
    png_read_row(png, row, nullptr);
    return true;
}

bool read_end(png_structp png, png_infop info)
{
    if (setjmp(png_jmpbuf(png)) != 0)
        return false;
    png_read_end(png, info);
    return true;
}

TextFields text_of(png_structp png, png_infop info)
{
    png_textp texts = nullptr;
    const int count = png_get_text(png, info, &texts, nullptr);
    TextFields fields;
    for (int i = 0; i < count; ++i)
        fields.emplace_back(texts[i].key, texts[i].text != nullptr ? texts[i].text : "");
    return fields;
}

template <class Image>
void write(OutputFile& file, const Image& image, const TextFields& text)
{
    Complaint complaint;
    Target target{&file, nullptr};
    Writer writer(complaint);
    png_set_write_fn(writer.png, &target, write_bytes, flush_nothing);

    TextFields fields = text; // libpng wants pointers to non-const characters
    std::vector<png_text> texts;
    char nothing[] = "";
    for (auto& [keyword, value] : fields) {
        const bool ascii = std::all_of(value.begin(), value.end(), [](char c) { return c > 0 && c < 127; });
        png_text entry = {};
        entry.compression = ascii ? PNG_TEXT_COMPRESSION_NONE : PNG_ITXT_COMPRESSION_NONE;
        entry.key = keyword.data();
        entry.text = value.data();
        (ascii ? entry.text_length : entry.itxt_length) = value.size();
        entry.lang = nothing;
        entry.lang_key = nothing;
        texts.push_back(entry);
    }
    std::vector<std::uint8_t> row(static_cast<std::size_t>(image.width) * (bytes_per_packed_pixel + 2));
    if (!try_to_emit(writer.png, writer.info, image, texts.data(), static_cast<int>(texts.size()), row.data())) {
        if (target.failure)
            std::rethrow_exception(target.failure);
        throw BadInput(std::string("the picture cannot be written: ") + complaint.text);
    }
}

} // namespace

void write_png(OutputFile& file, const GreyImage& image, const TextFields& text)
{
    write(file, image, text);
}

void write_png(OutputFile& file, const ColourImage& image, const TextFields& text)
{
    write(file, image, text);
}

bool is_png(const fs::path& path)
{
    const File file = open_for_reading(path);
    std::uint8_t signature[signature_bytes];
    return std::fread(signature, 1, signature_bytes, file.get()) == signature_bytes &&
           png_sig_cmp(signature, 0, signature_bytes) == 0;
}

PngPicture read_png(const fs::path& path)
{
    if (!is_png(path))
        throw BadInput(path.string() + ": a PNG picture is expected, found something else");
    const File file = open_for_reading(path);
    Complaint complaint;
    Reader reader(complaint);
    png_set_read_fn(reader.png, file.get(), read_bytes);
    // libpng takes the memory that a chunk claims before it reads it, and beyond the limit only warns unless told to stop.
    png_set_chunk_malloc_max(reader.png, most_text);
    png_set_benign_errors(reader.png, 0);
    const auto check = [&](bool read) {
        if (!read)
            throw BadInput(path.string() + ": damaged PNG: " + complaint.text);
    };
    check(read_header(reader.png, reader.info));

    const std::uint64_t width = png_get_image_width(reader.png, reader.info);
    const std::uint64_t height = png_get_image_height(reader.png, reader.info);
    const int color = png_get_color_type(reader.png, reader.info);
    if (png_get_bit_depth(reader.png, reader.info) == 16 || (color & PNG_COLOR_MASK_ALPHA) != 0 ||
        png_get_valid(reader.png, reader.info, PNG_INFO_tRNS) != 0 ||
        png_get_interlace_type(reader.png, reader.info) != PNG_INTERLACE_NONE || width * height > most_pixels)
        throw BadInput(path.string() + ": expected at most 8 bits per channel, no transparency, no interlacing and at most " +
                       std::to_string(most_pixels) + " pixels, as echo2image writes; found another kind of PNG");
    check(start_rows(reader.png, reader.info));

    PngPicture picture;
    picture.image.width = static_cast<int>(width);
    picture.image.height = static_cast<int>(height);
    std::vector<std::uint8_t> row(static_cast<std::size_t>(3 * width));
    // These grow with the rows that are really there, whatever height the header claims.
    std::vector<std::uint8_t> marks;
    bool marked = false;
    for (std::uint64_t y = 0; y < height; ++y) {
        check(read_row(reader.png, row.data()));
        picture.rgb.insert(picture.rgb.end(), row.begin(), row.end());
        for (std::size_t x = 0; x < row.size(); x += 3) {
            const bool grey = row[x] == row[x + 1] && row[x] == row[x + 2];
            const bool mark = !grey && row[x] == marked_red && row[x + 2] == marked_blue;
            picture.grey = picture.grey && (grey || mark);
            picture.image.pixels.push_back(row[x + 1]);
            marks.push_back(mark ? 255 : 0);
            marked = marked || mark;
        }
    }
    if (marked)
        picture.image.marks = std::move(marks);
    check(read_end(reader.png, reader.info));
    picture.text = text_of(reader.png, reader.info);
    return picture;
}

} // namespace echo2image
