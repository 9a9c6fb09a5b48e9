#include "npy.h"

#include "input_file.h"

#include <algorithm>
#include <charconv>
#include <map>

namespace echo2image {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view magic = "\x93NUMPY";
constexpr std::uint64_t most_header = 1 << 20;

// The header is a Python dictionary: {'descr': '<i2', 'fortran_order': False, 'shape': (16, 128), }
class Dictionary
{
public:
    Dictionary(const fs::path& file, std::string_view text) : file_(file), text_(text)
    {
        expect('{');
        while (!take('}')) {
            const std::string key = string();
            expect(':');
            if (!values_.emplace(key, value()).second)
                reject(file_, "header", "every key once", in_quotes(key) + " again");
            if (!take(',')) {
                expect('}');
                break;
            }
        }
        if (!rest().empty())
            reject(file_, "header", "nothing behind the dictionary", in_quotes(rest()));
    }

    const std::string& operator[](const char* key) const
    {
        const auto entry = values_.find(key);
        if (entry == values_.end())
            reject(file_, key, "this key in the header", "none");
        return entry->second;
    }

private:
    std::string_view rest()
    {
        at_ = std::min(text_.find_first_not_of(" \t\r\n", at_), text_.size());
        return text_.substr(at_);
    }

    bool take(char c)
    {
        if (rest().substr(0, 1) != std::string_view(&c, 1))
            return false;
        ++at_;
        return true;
    }

    void expect(char c)
    {
        if (!take(c))
            reject(file_, "header", in_quotes(std::string(1, c)) + " at character " + std::to_string(at_), in_quotes(rest()));
    }

    std::string string()
    {
        const char quote = take('"') ? '"' : '\'';
        if (quote == '\'')
            expect(quote);
        const std::size_t end = text_.find(quote, at_);
        if (end == std::string_view::npos)
            reject(file_, "header", "a quoted text that ends", in_quotes(rest()));
        const std::string_view inside = text_.substr(at_, end - at_);
        at_ = end + 1;
        return std::string(inside);
    }

    // A quoted text as its inside, anything else up to the comma or bracket that ends it, as it stands.
    std::string value()
    {
        if (const char first = rest().empty() ? '\0' : rest().front(); first == '\'' || first == '"')
            return string();
        int depth = 0;
        const std::size_t start = at_;
        for (; at_ < text_.size(); ++at_) {
            const char c = text_[at_];
            if (depth == 0 && (c == ',' || c == '}'))
                break;
            depth += c == '(' || c == '[' || c == '{' ? 1 : c == ')' || c == ']' || c == '}' ? -1 : 0;
        }
        return std::string(text_.substr(start, at_ - start));
    }

    const fs::path& file_;
    std::string_view text_;
    std::size_t at_ = 0;
    std::map<std::string, std::string> values_;
};

// "(16, 128, 676)", "(16,)", "()"; older files have 16L for 16.
std::vector<std::int64_t> shape_of(const fs::path& file, const std::string& text)
{
    const auto bad = [&]() { reject(file, "shape", "a tuple of positive whole numbers", in_quotes(text)); };
    std::vector<std::int64_t> shape;
    const std::size_t close = text.find(')');
    if (text.empty() || text.front() != '(' || close == std::string::npos ||
        text.find_first_not_of(' ', close + 1) != std::string::npos)
        bad();
    const char* at = text.data() + 1;
    const char* const end = text.data() + close;
    const auto skip_blanks = [&] {
        while (at < end && *at == ' ')
            ++at;
    };
    for (skip_blanks(); at < end; skip_blanks()) {
        std::int64_t count = 0;
        const auto [behind, error] = std::from_chars(at, end, count);
        if (error != std::errc() || count < 1)
            bad();
        shape.push_back(count);
        at = behind < end && *behind == 'L' ? behind + 1 : behind;
        skip_blanks();
        if (at < end && *at++ != ',')
            bad();
    }
    return shape;
}

} // namespace

Layout read_npy_header(const fs::path& file)
{
    InputFile input(file);
    std::string start(static_cast<std::size_t>(std::min<std::uint64_t>(input.size(), 12)), '\0');
    input.read(0, start.data(), start.size());
    if (start.size() < 12 || start.compare(0, magic.size(), magic) != 0)
        reject(file, "", "a NumPy file, which starts with \\x93NUMPY", in_quotes(start));
    const auto byte = [&](std::size_t i) { return static_cast<std::uint64_t>(static_cast<unsigned char>(start[i])); };
    const std::uint64_t version = byte(6);
    if (version < 1 || version > 3)
        reject(file, "version", "1, 2 or 3", std::to_string(version));
    const std::uint64_t at = version == 1 ? 10 : 12;
    const std::uint64_t length = byte(8) | byte(9) << 8 | (version == 1 ? 0 : byte(10) << 16 | byte(11) << 24);
    if (length > most_header || at + length > input.size())
        reject(file, "header", "at most " + std::to_string(std::min(most_header, input.size() - at)) + " bytes",
               std::to_string(length));
    std::string text(static_cast<std::size_t>(length), '\0');
    input.read(at, text.data(), text.size());
    const Dictionary header(file, text);

    Layout layout;
    layout.data_file = file;
    layout.format = "npy";
    layout.header_bytes = at + length;
    const std::string& type = header["descr"];
    if (type == "<i2")
        layout.type = ElementType::int16;
    else if (type == "|u1" || type == "<u1" || type == ">u1")
        layout.type = ElementType::uint8;
    else
        reject(file, "descr", "\"<i2\" or \"|u1\" (in NumPy: astype('<i2') or astype('u1'))", in_quotes(type));
    const std::string& order = header["fortran_order"];
    layout.fastest_first = order.substr(0, 4) == "True";
    if (!layout.fastest_first && order.substr(0, 5) != "False")
        reject(file, "fortran_order", "True or False", in_quotes(order));
    layout.shape = shape_of(file, header["shape"]);
    return layout;
}

} // namespace echo2image
