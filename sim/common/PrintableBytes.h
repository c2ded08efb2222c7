// Protocol traffic made readable for traces: carriage returns and other control bytes become visible escapes.
#pragma once

#include <string>

namespace lasersim {

// "SDC 40\r" reads as "SDC 40\r" with a visible backslash-r; other bytes outside printable ASCII as \xNN.
std::string PrintableBytes(const std::string& bytes);

}  // namespace lasersim
