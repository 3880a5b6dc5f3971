// What a reader or mesher has to say about its input, collected so that the caller can print it,
// list it in a summary and decide. One whole line of text each, without a newline.
#pragma once

#include <string>
#include <vector>

namespace kestralum {

struct Remarks {
    std::vector<std::string> errors;   // the input cannot be used; nothing is stored, nothing is run
    std::vector<std::string> notices;  // the input can be used, the user should know

    bool ok() const { return errors.empty(); }
};

}  // namespace kestralum
