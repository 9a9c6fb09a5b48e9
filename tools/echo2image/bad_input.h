// The one error of echo2image: something the user gave cannot be used.
#pragma once

#include <stdexcept>
#include <string>

namespace echo2image {

// what() is one line: what, where, what was expected, what was found. The program prints it and exits with code 2.
class BadInput : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

} // namespace echo2image
