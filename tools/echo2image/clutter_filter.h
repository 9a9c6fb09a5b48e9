// Clutter filters: what takes the strong, slow echoes of tissue out of an ensemble, as real matrices over the firings.
#pragma once

#include <string>
#include <vector>

namespace echo2image {

struct ClutterFilter
{
    enum class Kind
    {
        none,
        mean, // takes out what stands still
        poly, // takes out the least-squares polynomial of `order` over the firings
        iir,  // Butterworth high-pass of second order that has seen the first firing for ever
        dct,  // takes out the `order` lowest terms of the cosine transform
    };
    Kind kind = Kind::poly;
    int order = 1;     // poly: 0 and up; dct: 1 and up
    double cutoff = 0; // iir: -3 dB, in cycles per firing, between 0 and 0.5
};

// "none", "mean", "poly:1", "iir:0.05", "dct:2". Throws BadInput.
ClutterFilter clutter_filter_of(const std::string& text);
std::string to_string(const ClutterFilter& filter);

// [row][column]: filtered firing `row` is the sum over the columns of matrix times firing. Throws BadInput when the filter
// leaves nothing of so few firings.
std::vector<double> design(const ClutterFilter& filter, int firings);

// Power that the filter lets through of an echo that turns by `phase` radians per firing, averaged over the firings:
// 1 for a filter that changes nothing.
double power_response(const std::vector<double>& matrix, int firings, double phase);

} // namespace echo2image
