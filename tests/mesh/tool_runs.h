// The mesh generators whose files are read: their runs, each in a folder of its own.
#pragma once

#include <cstdlib>

#include "group_checks.h"
#include "mesh/gmsh_import.h"
#include "mesh/inp_import.h"
#include "mesh/vol_import.h"

#ifndef KESTRALUM_GMSH
#define KESTRALUM_GMSH ""
#endif
#ifndef KESTRALUM_NETGEN_PYTHON
#define KESTRALUM_NETGEN_PYTHON ""
#endif
#define NEEDS_GMSH \
    if (std::string(KESTRALUM_GMSH).empty()) GTEST_SKIP() << "SKIPPED: the program gmsh is not installed"
#define NEEDS_NETGEN                                  \
    if (std::string(KESTRALUM_NETGEN_PYTHON).empty()) \
    GTEST_SKIP() << "SKIPPED: Netgen and its Python module (python3-netgen) are not installed"

namespace kestralum::testing {

inline bool read_inp(std::string_view text, std::string_view name, double unit, PartMesh& mesh,
                     Remarks& remarks, const Progress& progress) {
    return read_inp_text(text, name, unit, memory_budget(), mesh, remarks, progress);
}

struct ToolRun : TempFolder {
    bool good;
    ToolRun(const std::string& program, const std::string& script_name, const std::string& script,
            const std::string& options = "") {
        write(script_name, script);
        const std::string command =
            "cd " + path().string() + " && " + program + " " + script_name + options + " > out.txt 2>&1";
        good = std::system(command.c_str()) == 0;
    }
    std::string output() const { return read_file(path() / "out.txt"); }
    // By the reader of the file's ending.
    Reading mesh(const std::string& name) const {
        Reader* const reader = name.ends_with("msh")   ? read_msh_text
                               : name.ends_with("inp") ? read_inp
                                                       : read_vol_text;
        return read(reader, read_file(path() / name));
    }
};
struct GmshRun : ToolRun {
    explicit GmshRun(const std::string& script) : ToolRun(KESTRALUM_GMSH, "part.geo", script, " -") {}
};
struct NetgenRun : ToolRun {
    explicit NetgenRun(const std::string& script) : ToolRun(KESTRALUM_NETGEN_PYTHON, "part.py", script) {}
};

// What Gmsh's script saves: the mesh in every format as NAME followed by one of these.
inline const char* const gmsh_files[] = {"22_0.msh", "22_1.msh", "41_0.msh", "41_1.msh", ".inp"};
inline std::string save_all(const std::string& name) {
    std::string script;
    for (const std::string file : gmsh_files) {
        if (file.ends_with("msh"))
            script += std::string("Mesh.MshFileVersion = ") + file[0] + "." + file[1] +
                      "; Mesh.Binary = " + file[3] + "; ";
        script += "Save \"" + name + file + "\";\n";
    }
    return script;
}

}  // namespace kestralum::testing
