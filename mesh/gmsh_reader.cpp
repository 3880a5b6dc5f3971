#include "mesh/gmsh_reader.h"

#include <algorithm>
#include <cmath>
#include <tuple>

#include "mesh/gmsh_elements.h"
#include "mesh/gmsh_input.h"
#include "mesh/node_numbers.h"

namespace kestralum {

namespace {

class GmshReader {
public:
    GmshReader(GmshInput& in, GmshMesh& mesh, const Progress& progress)
        : in_(in), mesh_(mesh), progress_(progress) {}

    bool read() {
        for (std::string_view word = in_.word(); !word.empty(); word = in_.word()) {
            if (!word.starts_with('$')) return in_.fail("a section's name, such as \"$Nodes\",");
            const std::string name(word.substr(1));
            if (!read_section(name)) return false;
            if (in_.word() != "$End" + name) return in_.fail("\"$End" + name + "\"");
        }
        for (const char* name : {"MeshFormat", "Nodes", "Elements"})
            if (!has(name)) return in_.fail("section \"$" + std::string(name) + "\"");
        return true;
    }

private:
    using Read = bool (GmshReader::*)();

    bool has(std::string_view section) const {
        return std::find(seen_.begin(), seen_.end(), section) != seen_.end();
    }

    // Leaves the input before the section's last line.
    bool read_section(const std::string& name) {
        struct Section {
            std::string_view name, needs;
            Read old, now;  // format 2.2 and 4.1; null where the format has none
        };
        static constexpr Section sections[] = {
            {"MeshFormat", "", &GmshReader::read_format, &GmshReader::read_format},
            {"PhysicalNames", "MeshFormat", &GmshReader::read_names, &GmshReader::read_names},
            {"Entities", "MeshFormat", nullptr, &GmshReader::read_entities},
            {"PartitionedEntities", "MeshFormat", nullptr, &GmshReader::read_partitions},
            {"Nodes", "MeshFormat", &GmshReader::read_nodes2, &GmshReader::read_nodes4},
            {"Elements", "Nodes", &GmshReader::read_elements2, &GmshReader::read_elements4}};
        for (const Section& section : sections) {
            if (section.name != name) continue;
            if (has(name)) return in_.fail("one section of this name");
            if (!section.needs.empty() && !has(section.needs))
                return in_.fail("section \"$" + std::string(section.needs) + "\" before it");
            seen_.push_back(name);
            if (in_.binary()) in_.rest_of_line();
            if (const Read read_it = format4_ ? section.now : section.old; read_it) return (this->*read_it)();
        }
        if (name == "NOD") return refuse_format("1");
        return in_.skip_to("$End" + name) || in_.fail("\"$End" + name + "\"");
    }

    bool read_format() {
        const std::string version(in_.word());
        format4_ = version == "4.1";
        if (version.empty() || version[0] < '0' || version[0] > '9') return in_.fail("the format's number");
        if (!format4_ && version != "2" && !version.starts_with("2.")) return refuse_format(version);
        std::int64_t binary = 0, size = 0, one = 0;
        if (!in_.text_whole(binary) || binary < 0 || binary > 1) return in_.fail("0 (text) or 1 (binary)");
        if (!in_.text_whole(size) || (size != 8 && binary)) return in_.fail("the size of a number, 8,");
        if (!binary) return true;
        in_.rest_of_line();
        in_.be_binary(false);
        constexpr std::int64_t swapped_one = 1 << 24;
        if (!in_.whole4(one) || (one != 1 && one != swapped_one))
            return in_.fail("the number 1 that shows the order of the bytes");
        in_.be_binary(one == swapped_one);
        return true;
    }

    bool refuse_format(const std::string& version) {
        return in_.fault(in_.place() + ": its format is Gmsh's " + version +
                         ", 2.2 or 4.1 is expected: convert it with \"gmsh -save -format msh41\"");
    }

    bool read_names() {
        std::int64_t count = 0;
        if (!in_.text_count(count, "the number of names", 5, 5)) return false;
        for (std::int64_t k = 0; k < count; ++k) {
            if (k % GmshInput::look == 0 && in_.stopped()) return false;
            std::int64_t dimension = 0, tag = 0;
            if (!in_.text_whole(dimension) || dimension < 0 || dimension > 3)
                return in_.fail("a dimension, 0 to 3,");
            if (!in_.text_whole(tag) || !GmshInput::is_tag(tag)) return in_.fail("a physical group's number");
            std::string_view name = in_.rest_of_line();
            if (name.empty() || name[0] == '$') return in_.fail("the name of a physical group");
            if (name.size() > 1 && name.front() == '"' && name.back() == '"')
                name = name.substr(1, name.size() - 2);
            mesh_.names.push_back(
                {static_cast<int>(dimension), static_cast<std::int32_t>(std::abs(tag)), std::string(name)});
        }
        return true;
    }

    // Geometry of format 4.1: which entities are in which physical groups.
    bool read_entities() { return read_entity_lists(false); }
    bool read_partitions() {
        std::int64_t partitions = 0, ghosts = 0;
        if (!in_.whole8(partitions)) return in_.fail("the number of partitions");
        if (!in_.count8(ghosts, "the number of ghost entities", 4, 8)) return false;
        return in_.skip4(2 * ghosts, "a ghost entity") && read_entity_lists(true);
    }
    bool read_entity_lists(bool partitioned) {
        std::array<std::int64_t, 4> counts{};
        for (std::int64_t& count : counts)
            if (!in_.count8(count, "the number of entities", 10, 36)) return false;
        for (int dimension = 0; dimension < 4; ++dimension)
            for (std::int64_t k = 0; k < counts[dimension]; ++k) {
                if (k % GmshInput::look == 0 && in_.stopped()) return false;
                if (!read_entity(dimension, partitioned)) return false;
            }
        const auto less = [](const GmshPhysical& a, const GmshPhysical& b) {
            return std::tie(a.dimension, a.entity, a.physical) < std::tie(b.dimension, b.entity, b.physical);
        };
        std::sort(mesh_.physicals.begin(), mesh_.physicals.end(), less);
        return true;
    }
    bool read_entity(int dimension, bool partitioned) {
        std::int64_t tag = 0, count = 0;
        if (!in_.whole4(tag) || !GmshInput::is_tag(tag)) return in_.fail("an entity's number");
        if (partitioned) {  // its parent, and the partitions that it belongs to
            if (!in_.skip4(2, "the parent of an entity")) return false;
            if (!in_.count8(count, "the number of partitions", 2, 4)) return false;
            if (!in_.skip4(count, "a partition")) return false;
        }
        double ignored = 0;
        for (int k = 0; k < (dimension == 0 ? 3 : 6); ++k)
            if (!in_.real(ignored)) return in_.fail("a coordinate of an entity");
        if (!in_.count8(count, "the number of physical groups", 2, 4)) return false;
        for (std::int64_t k = 0; k < count; ++k) {
            std::int64_t physical = 0;  // a minus sign only turns the way round
            if (!in_.whole4(physical) || !GmshInput::is_tag(physical) || physical == 0)
                return in_.fail("the number of a physical group");
            mesh_.physicals.push_back(
                {dimension, static_cast<std::int32_t>(tag), static_cast<std::int32_t>(std::abs(physical))});
        }
        if (dimension == 0) return true;
        return in_.count8(count, "the number of bounding entities", 2, 4) &&
               in_.skip4(count, "the number of a bounding entity");
    }

    bool read_nodes2() {
        std::int64_t count = 0;
        if (!in_.text_count(count, "the number of nodes", 8, 28)) return false;
        if (in_.binary()) in_.rest_of_line();
        reserve_nodes(count);
        for (std::int64_t n = 0; n < count; ++n) {
            if (n % GmshInput::look == 0 && in_.stopped()) return false;
            std::int64_t number = 0;
            if (!in_.whole4(number) || !add_number(number)) return in_.fail("a node number");
            if (!read_place(0)) return false;
        }
        return number_nodes();
    }
    bool read_nodes4() {
        std::int64_t blocks = 0, count = 0, in_block = 0;
        if (!in_.count8(blocks, "the number of node blocks", 8, 20)) return false;
        if (!in_.count8(count, "the number of nodes", 8, 32)) return false;
        if (!in_.skip8(2, "the smallest and the largest node number")) return false;
        reserve_nodes(count);
        for (std::int64_t b = 0; b < blocks; ++b) {
            if (in_.stopped()) return false;
            std::int64_t dimension = 0, entity = 0, parametric = 0;
            if (!in_.whole4(dimension) || dimension < 0 || dimension > 3)
                return in_.fail("a dimension, 0 to 3,");
            if (!in_.whole4(entity)) return in_.fail("an entity's number");
            if (!in_.whole4(parametric) || parametric < 0 || parametric > 1) return in_.fail("0 or 1");
            if (!in_.count8(in_block, "the number of nodes in a block", 8, 32)) return false;
            if (in_block > count - node_num()) return in_.fail("no more nodes than the section's");
            if (!read_node_block(in_block, parametric ? static_cast<int>(dimension) : 0)) return false;
        }
        if (node_num() < count)
            return in_.fault(in_.place() + ": the section's blocks have " + std::to_string(node_num()) +
                             " nodes, " + std::to_string(count) + " expected");
        return number_nodes();
    }
    bool read_node_block(std::int64_t count, int parameters) {
        for (std::int64_t n = 0; n < count; ++n) {
            if (n % GmshInput::look == GmshInput::look - 1 && in_.stopped()) return false;
            std::int64_t number = 0;
            if (!in_.whole8(number) || !add_number(number)) return in_.fail("a node number");
        }
        for (std::int64_t n = 0; n < count; ++n) {
            if (n % GmshInput::look == GmshInput::look - 1 && in_.stopped()) return false;
            if (!read_place(parameters)) return false;
        }
        return true;
    }
    std::int64_t node_num() const { return static_cast<std::int64_t>(numbers_.size()); }
    void reserve_nodes(std::int64_t count) {
        numbers_.reserve(count);
        number_at_.reserve(count);
        mesh_.coordinates.reserve(3 * count);
    }
    bool add_number(std::int64_t number) {
        numbers_.push_back(number);
        number_at_.push_back(in_.last_at());
        return number >= 1;
    }
    bool read_place(int parameters) {
        for (int k = 0; k < 3 + parameters; ++k) {
            double value = 0;
            if (!in_.real(value) || !std::isfinite(value)) return in_.fail("a coordinate");
            if (k < 3) mesh_.coordinates.push_back(value);
        }
        return true;
    }
    bool number_nodes() {
        std::int64_t repeated = -1;
        if (!nodes_.build(numbers_, progress_, repeated)) return false;
        if (repeated >= 0)
            return in_.fault(in_.place(number_at_[repeated]) + " \"" + std::to_string(numbers_[repeated]) +
                             "\": a node number that did not come before expected");
        std::vector<std::int64_t>().swap(numbers_);  // the elements need none of this memory
        std::vector<std::int64_t>().swap(number_at_);
        return true;
    }

    bool read_elements2() { return GmshElements(in_, nodes_, mesh_).read2(); }
    bool read_elements4() { return GmshElements(in_, nodes_, mesh_).read4(); }

    GmshInput& in_;
    GmshMesh& mesh_;
    const Progress& progress_;
    bool format4_ = false;
    std::vector<std::string> seen_;  // names of the sections that came
    NodeNumbers nodes_;
    std::vector<std::int64_t> numbers_, number_at_;  // of each node: its number, and where that stands
};

}  // namespace

bool read_gmsh(std::string_view text, std::string_view file_name, GmshMesh& mesh, std::string& error,
               const Progress& progress) {
    mesh = {};
    GmshInput in(text, file_name, progress);
    const bool good = GmshReader(in, mesh, progress).read();
    error = in.error();
    return good;
}

}  // namespace kestralum
