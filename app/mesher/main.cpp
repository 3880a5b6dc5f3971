// kestralum-mesher: started by the readers of CAD files, one file a process. Arguments are WORD=VALUE, the
// words those of MesherRequest; the last line it prints is "done", or "error TEXT" with status 1.
#include <charconv>
#include <cstdio>
#include <exception>
#include <string>
#include <string_view>

#include "app/mesher/cad_mesher.h"
#include "model/version.h"

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

constexpr const char* usage =
    "kestralum-mesher file=FILE output=FILE [WORD=VALUE]...\n"
    "kestralum-mesher --help | --version\n"
    "\n"
    "Divides a CAD file into tetrahedra. kestralum and kestralum-batch start it for the CAD files of a "
    "model.\n"
    "\n"
    "Arguments:\n"
    "  file=FILE             STEP, IGES, BREP or a closed STL surface, by its ending\n"
    "  output=FILE           the mesh, Gmsh's format 4.1, binary\n"
    "  size=S                edge of an element, in the file's length; 0, unless given: chosen, and told\n"
    "  order=1|2             4-node or 10-node tetrahedra; 2 unless given\n"
    "  curvature=N           elements around a full turn; -1, unless given: 12, but no edge under size/5\n"
    "  fragment=on|off       bodies that touch share the nodes of their faces; off unless given\n"
    "  refine=GROUP:S        edge at a face or body; repeatable\n"
    "  most_elements=N       more than these are refused before the work begins\n"
    "\n"
    "Options:\n"
    "  -h,--help             prints this\n"
    "  --version             prints the version\n"
    "\n"
    "Exit status: 0 done, the last line is \"done\"; 1 it could not be divided, the last line is \"error\" "
    "and why.\n";

int fail(const char* reason) {
    std::printf("\nerror %s\n", reason);
    return 1;
}

}  // namespace

int main(int argc, char** argv) {
    std::setvbuf(stdout, nullptr, _IOLBF, 0);  // the caller follows the lines
    const std::string_view asked = argc == 2 ? argv[1] : "";
    if (asked == "-h" || asked == "--help") return std::fputs(usage, stdout) < 0;
    if (asked == "--version") return std::printf("KESTRALUM %s\n", kestralum::program_version) < 0;
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
