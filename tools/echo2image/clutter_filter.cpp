#include "clutter_filter.h"

#include "input_file.h"
#include "portable_math.h"

#include <charconv>
#include <cmath>
#include <cstddef>
#include <string_view>
#include <system_error>

namespace echo2image {

namespace {

using Kind = ClutterFilter::Kind;

constexpr int highest_order = 63;

struct Name
{
    Kind kind;
    const char* name;
};
constexpr Name names[] = {
    {Kind::none, "none"}, {Kind::mean, "mean"}, {Kind::poly, "poly"}, {Kind::iir, "iir"}, {Kind::dct, "dct"}};

const char* name_of(Kind kind)
{
    for (const Name& name : names)
        if (name.kind == kind)
            return name.name;
    return "";
}

[[noreturn]] void reject(const std::string& text)
{
    throw BadInput("--filter: expected none, mean, poly:ORDER (0 to " + std::to_string(highest_order) +
                   "), iir:CUTOFF (cycles per firing, between 0 and 0.5) or dct:COUNT (1 to " + std::to_string(highest_order) +
                   "), found " + in_quotes(text));
}

template <class Number>
bool parse(std::string_view text, Number& value)
{
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size();
}

class Matrix
{
public:
    explicit Matrix(int size) : size_(static_cast<std::size_t>(size)), values_(size_ * size_) {}
    double& at(int row, int column)
    {
        return values_[static_cast<std::size_t>(row) * size_ + static_cast<std::size_t>(column)];
    }
    std::vector<double> values() { return std::move(values_); }

private:
    std::size_t size_;
    std::vector<double> values_;
};

// What is left when orthonormal shapes over the firings are taken out: 1 - sum of shape shape'.
Matrix without(const std::vector<std::vector<double>>& shapes, int firings)
{
    Matrix matrix(firings);
    for (int row = 0; row < firings; ++row)
        for (int column = 0; column < firings; ++column) {
            double removed = 0;
            for (const std::vector<double>& shape : shapes)
                removed += shape[static_cast<std::size_t>(row)] * shape[static_cast<std::size_t>(column)];
            matrix.at(row, column) = (row == column ? 1.0 : 0.0) - removed;
        }
    return matrix;
}

double product(const std::vector<double>& a, const std::vector<double>& b)
{
    double sum = 0;
    for (std::size_t i = 0; i < a.size(); ++i)
        sum += a[i] * b[i];
    return sum;
}

// Polynomials of degree 0 to `order`, orthonormal over the firings. Each is the one before times the firing's place, made
// orthogonal to all before twice, which keeps high orders exact.
std::vector<std::vector<double>> polynomials(int order, int firings)
{
    std::vector<std::vector<double>> shapes;
    std::vector<double> shape(static_cast<std::size_t>(firings), 1.0);
    for (int degree = 0; degree <= order; ++degree) {
        for (int pass = 0; pass < 2; ++pass)
            for (const std::vector<double>& earlier : shapes) {
                const double part = product(shape, earlier);
                for (std::size_t k = 0; k < shape.size(); ++k)
                    shape[k] -= part * earlier[k];
            }
        const double length = std::sqrt(product(shape, shape));
        for (double& value : shape)
            value /= length;
        shapes.push_back(shape);
        for (std::size_t k = 0; k < shape.size(); ++k)
            shape[k] *= (2 * static_cast<double>(k) - (firings - 1)) / firings;
    }
    return shapes;
}

std::vector<std::vector<double>> cosines(int count, int firings)
{
    std::vector<std::vector<double>> shapes;
    for (int term = 0; term < count; ++term) {
        std::vector<double> shape;
        for (int k = 0; k < firings; ++k)
            shape.push_back(std::sqrt((term == 0 ? 1.0 : 2.0) / firings) *
                            portable::cos(portable::pi * term * (k + 0.5) / firings));
        shapes.push_back(shape);
    }
    return shapes;
}

// The high-pass in transposed direct form, from the bilinear transform. Its memory starts as if the first firing had
// always been there, so that an echo which stands still comes out as zeros from the first firing on: no ringing.
Matrix step_initialised_high_pass(double cutoff, int firings)
{
    const double t = portable::sin(portable::pi * cutoff) / portable::cos(portable::pi * cutoff);
    const double scale = 1 / (1 + std::sqrt(2.0) * t + t * t);
    const double a1 = 2 * (t * t - 1) * scale;
    const double a2 = (1 - std::sqrt(2.0) * t + t * t) * scale;
    Matrix matrix(firings);
    for (int column = 0; column < firings; ++column) {
        const double start = column == 0 ? 1 : 0; // of the firing that was always there
        double first = -scale * start;            // the memory of a constant input, whose output is zero
        double second = scale * start;
        for (int row = 0; row < firings; ++row) {
            const double input = row == column ? 1 : 0;
            const double output = scale * input + first;
            first = -2 * scale * input - a1 * output + second;
            second = scale * input - a2 * output;
            matrix.at(row, column) = output;
        }
    }
    return matrix;
}

} // namespace

ClutterFilter clutter_filter_of(const std::string& text)
{
    const std::size_t colon = text.find(':');
    const std::string name = text.substr(0, colon);
    const bool has_value = colon != std::string::npos;
    const std::string_view value = has_value ? std::string_view(text).substr(colon + 1) : std::string_view();
    for (const Name& known : names) {
        if (name != known.name)
            continue;
        ClutterFilter filter;
        filter.kind = known.kind;
        filter.order = 0;
        switch (filter.kind) {
        case Kind::none:
        case Kind::mean:
            if (has_value)
                reject(text);
            return filter;
        case Kind::poly:
        case Kind::dct:
            if (!parse(value, filter.order) || filter.order < (filter.kind == Kind::dct ? 1 : 0) ||
                filter.order > highest_order)
                reject(text);
            return filter;
        case Kind::iir:
            if (!parse(value, filter.cutoff) || !(filter.cutoff > 0 && filter.cutoff < 0.5))
                reject(text);
            return filter;
        }
    }
    reject(text);
}

std::string to_string(const ClutterFilter& filter)
{
    std::string text = name_of(filter.kind);
    char number[40];
    switch (filter.kind) {
    case Kind::none:
    case Kind::mean:
        return text;
    case Kind::poly:
    case Kind::dct:
        return text + ':' + std::to_string(filter.order);
    case Kind::iir:
        return text + ':' + std::string(number, std::to_chars(number, number + sizeof number, filter.cutoff).ptr);
    }
    return text;
}

std::vector<double> design(const ClutterFilter& filter, int firings)
{
    const int removed = filter.kind == Kind::mean ? 1 : filter.kind == Kind::poly ? filter.order + 1 : filter.order;
    if (filter.kind != Kind::none && filter.kind != Kind::iir && removed >= firings)
        throw BadInput("--filter: " + to_string(filter) + " takes all there is out of " + std::to_string(firings) +
                       " firings; expected a lower order");
    switch (filter.kind) {
    case Kind::none:
        return without({}, firings).values();
    case Kind::mean:
        return without(polynomials(0, firings), firings).values();
    case Kind::poly:
        return without(polynomials(filter.order, firings), firings).values();
    case Kind::dct:
        return without(cosines(filter.order, firings), firings).values();
    case Kind::iir:
        return step_initialised_high_pass(filter.cutoff, firings).values();
    }
    return {};
}

double power_response(const std::vector<double>& matrix, int firings, double phase)
{
    double power = 0;
    for (int row = 0; row < firings; ++row) {
        double re = 0;
        double im = 0;
        for (int column = 0; column < firings; ++column) {
            const double weight =
                matrix[static_cast<std::size_t>(row) * static_cast<std::size_t>(firings) + static_cast<std::size_t>(column)];
            re += weight * portable::cos(phase * column);
            im += weight * portable::sin(phase * column);
        }
        power += re * re + im * im;
    }
    return power / firings;
}

} // namespace echo2image
