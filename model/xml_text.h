// Text as XML and HTML write it.
#pragma once

#include <string>
#include <string_view>

namespace kestralum {

// `text` with & < > and " as they may stand in elements and between quotes, and back.
std::string xml_escaped(std::string_view text);
std::string xml_unescaped(std::string_view text);

}  // namespace kestralum
