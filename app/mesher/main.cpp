// kestralum-mesher: started by the readers of CAD files, one file a process. Arguments are WORD=VALUE, the
// words those of MesherRequest; the last line it prints is "done", or "error TEXT" with status 1.
#include <charconv>
#include <cstdio>
#include <exception>
#include <string>
#include <string_view>

#include "app/mesher/cad_mesher.h"

namespace {

using kestralum::MesherRequest;

bool read_number(std::string_view text, double& value) {
    const auto [end, fault] = std::from_chars(text.data(), text.data() + text.size(), value);
    return fault == std::errc() && end == text.data() + text.size();
}

bool read_argument(std::string_view argument, MesherRequest& request) {
    const std::size_t equals = argument.find('=');
    if (equals == std::string_view::npos) return false;
    const std::string_view word = argument.substr(0, equals), value = argument.substr(equals + 1);
    double number = 0;
    if (word == "file") {
        request.file = value;
    } else if (word == "output") {
        request.output = value;
    } else if (word == "fragment") {
        request.fragment = value == "on";
    } else if (word == "refine") {
        const std::size_t colon = value.rfind(':');
        if (colon == std::string_view::npos || !read_number(value.substr(colon + 1), number)) return false;
        request.refinements.emplace_back(value.substr(0, colon), number);
    } else if (!read_number(value, number)) {
        return false;
    } else if (word == "size") {
        request.size = number;
    } else if (word == "order") {
        request.order = number == 1 ? 1 : 2;
    } else if (word == "curvature") {
        request.curvature = number;
    } else if (word == "most_elements") {
        request.most_elements = number;
    } else {
        return false;
    }
    return true;
}

int fail(const char* reason) {
    std::printf("\nerror %s\n", reason);
    return 1;
}

}  // namespace

int main(int argc, char** argv) {
    std::setvbuf(stdout, nullptr, _IOLBF, 0);  // the caller follows the lines
    MesherRequest request;
    for (int k = 1; k < argc; ++k)
        if (!read_argument(argv[k], request)) return fail("a WORD=VALUE that it knows expected");
    if (request.file.empty() || request.output.empty()) return fail("file= and output= expected");
    try {
        kestralum::mesh_cad_file(request);
    } catch (const std::exception& e) {
        return fail(e.what());
    } catch (...) {
        return fail("the mesher ended without a reason");
    }
    std::printf("\ndone\n");
    return 0;
}
