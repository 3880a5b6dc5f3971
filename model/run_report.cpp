#include "model/run_report.h"

#include <utility>

namespace kestralum {

RunReport& RunReport::fail(RunStatus why, std::string text) {
    status = why;
    remarks.errors.push_back(std::move(text));
    return *this;
}

}  // namespace kestralum
