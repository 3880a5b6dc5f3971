#include "app/mesher/cad_mesher.h"

#include <gmsh.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <map>
#include <new>
#include <numbers>
#include <stdexcept>

#include "app/mesher/step_names.h"
#include "model/element_quality.h"
#include "model/vector3.h"

namespace kestralum {

namespace {

using gmsh::vectorpair;

void notice(const std::string& text) {
    std::printf("\nnotice %s\n", text.c_str());
}

std::string with_digits(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.4g", value);
    return text;
}

std::vector<int> tags_of(int dimension) {
    vectorpair entities;
    gmsh::model::getEntities(entities, dimension);
    std::vector<int> tags;
    for (const auto& [dim, tag] : entities) tags.push_back(tag);
    return tags;
}

bool is_stl(const std::string& file) {
    std::string ending = file.size() < 4 ? file : file.substr(file.size() - 4);
    std::ranges::transform(ending, ending.begin(), [](unsigned char c) { return std::tolower(c); });
    return ending == ".stl";
}

// Names of entities by dimension and number, while fragmenting renumbers them.
struct Label {
    int dimension, tag;
    std::string name;
};

// The last word of a label such as "Shapes/Bracket"; "" without one.
std::string label_of(int dimension, int tag) {
    std::string name;
    gmsh::model::getEntityName(dimension, tag, name);
    const std::size_t slash = name.rfind('/');
    if (slash != std::string::npos) name.erase(0, slash + 1);
    // what the library's own writer puts where nobody gave a name
    return name.starts_with("Open CASCADE STEP translator") ? std::string() : name;
}

std::vector<Label> read_labels() {
    std::vector<Label> labels;
    for (const int dimension : {2, 3})
        for (const int tag : tags_of(dimension))
            if (std::string name = label_of(dimension, tag); !name.empty())
                labels.push_back({dimension, tag, std::move(name)});
    return labels;
}

// Names that the file gives to bodies and faces, where they match what the library has read.
void add_step_names(const std::string& file, std::vector<Label>& labels) {
    std::ifstream stream(file, std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(stream), {}};
    const std::vector<StepBody> bodies = read_step_names(text);
    const std::vector<int> volumes = tags_of(3), surfaces = tags_of(2);
    std::size_t faces = 0;
    for (const StepBody& body : bodies) faces += body.faces.size();
    if (bodies.size() != volumes.size() || faces != surfaces.size()) return;
    std::vector<Label> named;
    for (std::size_t b = 0, face = 0; b < bodies.size(); ++b) {
        vectorpair around;
        gmsh::model::getBoundary({{3, volumes[b]}}, around, false, false);
        if (around.size() != bodies[b].faces.size()) return;
        if (!bodies[b].name.empty()) named.push_back({3, volumes[b], bodies[b].name});
        for (const std::string& name : bodies[b].faces) {
            if (!name.empty()) named.push_back({2, surfaces[face], name});
            ++face;
        }
    }
    // the first label of an entity counts
    labels.insert(labels.begin(), named.begin(), named.end());
}

// By which a face is known again under another number.
struct FaceMark {
    int tag;
    double area, centre[3];
};
std::vector<FaceMark> mark_faces() {
    std::vector<FaceMark> marks;
    for (const int tag : tags_of(2)) {
        FaceMark& mark = marks.emplace_back(FaceMark{tag, 0, {}});
        gmsh::model::occ::getMass(2, tag, mark.area);
        gmsh::model::occ::getCenterOfMass(2, tag, mark.centre[0], mark.centre[1], mark.centre[2]);
    }
    return marks;
}
bool is_same(const FaceMark& a, const FaceMark& b) {
    constexpr double tolerance = 1e-6;
    double apart = 0;
    for (int c = 0; c < 3; ++c) apart = std::max(apart, std::abs(a.centre[c] - b.centre[c]));
    return std::abs(a.area - b.area) <= tolerance * a.area && apart <= tolerance * std::sqrt(a.area);
}

// Bodies that touch get common faces; labels follow the pieces.
void fragment_bodies(std::vector<Label>& labels) {
    vectorpair bodies, faces, pieces;
    gmsh::model::getEntities(bodies, 3);
    if (bodies.size() < 2) return;
    gmsh::model::getEntities(faces, 2);
    const std::vector<FaceMark> before = mark_faces();
    std::vector<vectorpair> pieces_of;
    gmsh::model::occ::fragment(bodies, faces, pieces, pieces_of);
    gmsh::model::occ::synchronize();
    const std::vector<FaceMark> after = mark_faces();
    vectorpair inputs = bodies;
    inputs.insert(inputs.end(), faces.begin(), faces.end());
    std::vector<Label> kept;
    for (const Label& label : labels) {
        const auto input = std::ranges::find(inputs, std::pair(label.dimension, label.tag));
        if (input == inputs.end()) continue;
        const vectorpair& found = pieces_of[input - inputs.begin()];
        for (const auto& [dimension, tag] : found)
            if (dimension == label.dimension) kept.push_back({dimension, tag, label.name});
        if (label.dimension == 3 || !found.empty()) continue;
        // a face that stays as it is may get another number without a word of it
        const auto own = std::ranges::find(before, label.tag, &FaceMark::tag);
        for (const FaceMark& mark : after)
            if (is_same(*own, mark)) kept.push_back({2, mark.tag, label.name});
    }
    labels = std::move(kept);
}

double longest_side() {
    double low[3], high[3];
    gmsh::model::getBoundingBox(-1, -1, low[0], low[1], low[2], high[0], high[1], high[2]);
    double longest = 0;
    for (int c = 0; c < 3; ++c) longest = std::max(longest, high[c] - low[c]);
    return longest;
}

void import_shapes(const std::string& file) {
    vectorpair bodies;
    try {
        gmsh::model::occ::importShapes(file, bodies, true);
    } catch (...) {
        throw std::runtime_error("no shape can be read from it: is it a whole STEP, IGES or BREP file?");
    }
    gmsh::model::occ::synchronize();
    if (!tags_of(3).empty()) return;
    // faces that only together close a body, as most IGES files have them
    constexpr double tolerances[] = {1e-8, 1e-6, 1e-4};  // of the longest side
    for (const double tolerance : tolerances) {
        vectorpair healed;
        gmsh::model::occ::healShapes(healed, {}, tolerance * longest_side(), true, true, true, true, true);
        gmsh::model::occ::synchronize();
        if (!tags_of(3).empty()) break;
    }
    if (tags_of(3).empty()) throw std::runtime_error("it has no solid body, and its faces do not close one");
    notice("its faces are sewn together into bodies: the file has none");
}

// The nodes of the mesh by their numbers.
class NodePlaces {
public:
    NodePlaces() {
        std::vector<std::size_t> numbers;
        std::vector<double> unused;
        gmsh::model::mesh::getNodes(numbers, places_, unused);
        at_.resize(numbers.empty() ? 1 : *std::ranges::max_element(numbers) + 1);
        for (std::size_t n = 0; n < numbers.size(); ++n) at_[numbers[n]] = 3 * n;
    }
    const double* of(std::size_t number) const { return &places_[at_[number]]; }

private:
    std::vector<double> places_;
    std::vector<std::size_t> at_;
};

// Volume that a surface of triangles encloses and its area.
struct Measure {
    double volume = 0, area = 0;
};
Measure measure_triangles() {
    const NodePlaces places;
    constexpr int triangles = 2;  // the library's number of the kind
    std::vector<std::size_t> elements, nodes;
    gmsh::model::mesh::getElementsByType(triangles, elements, nodes);
    const auto place = [&](std::size_t k) { return triple({places.of(nodes[k]), 3}, 0); };
    Measure sum;
    for (std::size_t t = 0; t + 2 < nodes.size(); t += 3) {
        const Vec3 a = place(t), normal = cross(minus(place(t + 1), a), minus(place(t + 2), a));
        sum.area += norm(normal) / 2;
        sum.volume += dot(normal, a) / 6;
    }
    sum.volume = std::abs(sum.volume);
    return sum;
}

// A closed surface of facets becomes one body with smooth patches as faces.
Measure import_stl_surface(const std::string& file) {
    gmsh::merge(file);
    const Measure measure = measure_triangles();
    if (measure.area == 0) throw std::runtime_error("it has no facets");
    constexpr double sharp = 40 * std::numbers::pi / 180;
    gmsh::model::mesh::classifySurfaces(sharp, true, true, std::numbers::pi);
    gmsh::model::mesh::createGeometry();
    // an edge of one face alone is an edge of a hole
    for (const int curve : tags_of(1)) {
        std::vector<int> faces, edges;
        gmsh::model::getAdjacencies(1, curve, faces, edges);
        if (faces.size() < 2 && !faces.empty()) {
            vectorpair twice;
            gmsh::model::getBoundary({{2, faces[0]}}, twice, false, false);
            if (std::ranges::count(twice, curve, &std::pair<int, int>::second) < 2)
                throw std::runtime_error("its surface is not closed");
        }
    }
    gmsh::model::geo::addVolume({gmsh::model::geo::addSurfaceLoop(tags_of(2))});
    gmsh::model::geo::synchronize();
    return measure;
}

Measure measure_bodies() {
    Measure sum;
    for (const int tag : tags_of(3)) {
        double volume = 0;
        gmsh::model::occ::getMass(3, tag, volume);
        sum.volume += std::abs(volume);
    }
    for (const int tag : tags_of(2)) {
        double area = 0;
        gmsh::model::occ::getMass(2, tag, area);
        sum.area += area;
    }
    return sum;
}

// Edge that gives a first mesh: about one element through a wall, or a fifteenth of the longest side.
double chosen_size(const Measure& measure) {
    const double longest = longest_side();
    const double wall = measure.area > 0 ? 2 * measure.volume / measure.area : longest;
    return std::clamp(wall, longest / 60, longest / 15);
}

void check_count(const MesherRequest& request, const Measure& measure, double size) {
    // a tetrahedron of equal edges a has a³/(6√2); a wall thinner than an edge has elements all the same
    const double elements =
        6 * std::numbers::sqrt2 * measure.volume / (size * size * size) + 2 * measure.area / (size * size);
    if (elements > request.most_elements)
        throw std::runtime_error("size=" + with_digits(size) + " would give about " + with_digits(elements) +
                                 " elements, this machine holds " + with_digits(request.most_elements));
}

// One physical group for each body and face.
void name_groups(const std::vector<Label>& labels) {
    for (const int dimension : {3, 2}) {
        int number = 0;  // a surface of facets is numbered from wherever the library begins
        for (const int tag : tags_of(dimension)) {
            ++number;
            const auto label = std::ranges::find_if(
                labels, [&](const Label& l) { return l.dimension == dimension && l.tag == tag; });
            const std::string name = label != labels.end()
                                         ? label->name
                                         : (dimension == 3 ? "body_" : "face_") + std::to_string(number);
            gmsh::model::setPhysicalName(dimension, gmsh::model::addPhysicalGroup(dimension, {tag}, tag),
                                         name);
        }
    }
}

std::string same_blanks(std::string name) {
    std::ranges::replace_if(
        name, [](unsigned char c) { return std::isspace(c); }, '_');
    return name;
}

// The physical groups of a name, or of names with commas between them; they have their entity's number.
vectorpair entities_named(const std::string& names, const vectorpair& groups) {
    vectorpair found;
    for (const auto& [dimension, tag] : groups) {
        std::string name;
        gmsh::model::getPhysicalName(dimension, tag, name);
        if (same_blanks(name) == names) found.emplace_back(dimension, tag);
    }
    if (!found.empty()) return found;
    const std::size_t comma = names.find(',');
    if (comma == std::string::npos)
        throw std::runtime_error("refine=" + names + ": it has no body or face of this name");
    found = entities_named(names.substr(0, comma), groups);
    const vectorpair others = entities_named(names.substr(comma + 1), groups);
    found.insert(found.end(), others.begin(), others.end());
    return found;
}

// Smaller edges on the groups asked for and on what bounds them; from there the mesher lets them grow.
void refine(const MesherRequest& request) {
    using Entity = std::pair<int, int>;  // dimension, number
    std::map<Entity, double> edge_of;
    vectorpair groups;
    gmsh::model::getPhysicalGroups(groups);
    for (const auto& [names, edge] : request.refinements) {
        vectorpair around = entities_named(names, groups);
        while (!around.empty()) {
            vectorpair bounding;
            for (const Entity& entity : around) {
                const auto [known, added] = edge_of.try_emplace(entity, edge);
                if (!added) known->second = std::min(known->second, edge);
                vectorpair of_one;
                if (entity.first > 0) gmsh::model::getBoundary({entity}, of_one, false, false);
                bounding.insert(bounding.end(), of_one.begin(), of_one.end());
            }
            std::ranges::sort(bounding);
            bounding.erase(std::unique(bounding.begin(), bounding.end()), bounding.end());
            around = bounding;
        }
    }
    if (edge_of.empty()) return;
    gmsh::model::mesh::setSizeCallback(
        [edge_of](int dimension, int tag, double /*x*/, double /*y*/, double /*z*/) {
            const auto edge = edge_of.find({dimension, tag});
            return edge == edge_of.end() ? 1e22 : edge->second;
        });
}

void set_options(const MesherRequest& request, bool facets, double size) {
    constexpr double default_curvature = 12, default_least = 0.2;
    const bool chosen = request.curvature < 0;
    gmsh::option::setNumber("Mesh.MeshSizeFromCurvature", !chosen  ? request.curvature
                                                          : facets ? 0
                                                                   : default_curvature);
    gmsh::option::setNumber("Mesh.MeshSizeMin",
                            chosen && request.refinements.empty() ? default_least * size : 0);
    gmsh::option::setNumber("Mesh.MeshSizeMax", size);
    gmsh::option::setNumber("Mesh.MeshSizeFromPoints", 0);
    gmsh::option::setNumber("Mesh.SecondOrderLinear",
                            facets);  // between facets there is no surface to follow
    gmsh::option::setNumber("Mesh.Binary", 1);
    gmsh::option::setNumber("Mesh.MshFileVersion", 4.1);
    gmsh::option::setNumber("Mesh.OptimizeThreshold", 0.5);  // the default leaves slivers
    gmsh::option::setNumber("Mesh.SaveAll", 0);
}

// Smallest angle of a tetrahedron, degrees, over all of them.
double smallest_angle() {
    const NodePlaces places;
    constexpr int four_nodes = 4;  // the library's number of the kind
    std::vector<std::size_t> elements, nodes;
    gmsh::model::mesh::getElementsByType(four_nodes, elements, nodes);
    double smallest = 180;
    for (std::size_t t = 0; t + 3 < nodes.size(); t += 4) {
        std::array<double, 12> x;
        for (std::size_t k = 0; k < 4; ++k) std::copy_n(places.of(nodes[t + k]), 3, &x[3 * k]);
        smallest = std::min(smallest, element_quality(ElementKind::tetrahedron4, x).angle);
    }
    return smallest;
}

// Slivers come and go with the surface mesh: where one is left another way to triangulate is tried, and the
// best of them taken. The numbers are the library's: Delaunay, frontal Delaunay, and MeshAdapt.
void generate(bool facets) {
    constexpr double good_angle = 5;  // degrees
    constexpr int ways[] = {5, 6, 1};
    int best = ways[0];
    double best_angle = -1;
    const auto divide = [facets](int way) {
        if (!facets) gmsh::model::mesh::clear();  // there the mesh is the shape
        gmsh::option::setNumber("Mesh.Algorithm", way);
        gmsh::model::mesh::generate(3);
        gmsh::model::mesh::optimize("", true);
        return smallest_angle();
    };
    int last = 0;
    for (const int way : ways) {
        const double angle = divide(last = way);
        if (angle > best_angle) best = way, best_angle = angle;
        if (angle >= good_angle || facets) return;
    }
    if (best != last) divide(best);
}

void check_volume(const Measure& surface) {
    double meshed = 0;
    std::vector<int> types;
    std::vector<std::vector<std::size_t>> elements, nodes;
    gmsh::model::mesh::getElements(types, elements, nodes, 3);
    for (const int type : types) {
        std::vector<double> points, weights, jacobians, determinants, places;
        gmsh::model::mesh::getIntegrationPoints(type, "Gauss2", points, weights);
        gmsh::model::mesh::getJacobians(type, points, jacobians, determinants, places);
        for (std::size_t k = 0; k < determinants.size(); ++k)
            meshed += determinants[k] * weights[k % weights.size()];
    }
    if (std::abs(meshed - surface.volume) > 0.1 * surface.volume)
        throw std::runtime_error("its facets enclose a volume of " + with_digits(surface.volume) +
                                 ", its mesh has " + with_digits(meshed) +
                                 ": is the surface closed, and does it cross itself?");
}

void mesh(const MesherRequest& request) {
    gmsh::initialize(0, nullptr, false);
    gmsh::option::setNumber("General.Terminal", 1);
    gmsh::option::setNumber("General.NumThreads", 1);
    gmsh::model::add("part");
    const bool stl = is_stl(request.file);
    std::vector<Label> labels;
    Measure measure;
    if (stl) {
        measure = import_stl_surface(request.file);
    } else {
        import_shapes(request.file);
        labels = read_labels();
        add_step_names(request.file, labels);
        const std::size_t bodies = tags_of(3).size();
        if (request.fragment)
            fragment_bodies(labels);
        else if (bodies > 1)
            notice("its " + std::to_string(bodies) +
                   " bodies are meshed each by itself; fragment=on joins those that touch");
        measure = measure_bodies();
    }
    double size = request.size;
    if (size <= 0) {
        size = chosen_size(measure);
        notice("size= is not given: " + with_digits(size) + " is taken");
    }
    check_count(request, measure, size);
    name_groups(labels);
    set_options(request, stl, size);
    refine(request);
    generate(stl);
    gmsh::model::mesh::setOrder(request.order);
    if (stl) check_volume(measure);
    gmsh::write(request.output);
}

}  // namespace

void mesh_cad_file(const MesherRequest& request) {
    try {
        mesh(request);
    } catch (const std::string& reason) {  // as the library throws
        throw std::runtime_error(reason);
    } catch (const std::bad_alloc&) {
        throw std::runtime_error("not enough memory for a mesh of this size");
    }
}

}  // namespace kestralum
