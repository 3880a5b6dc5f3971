// Supports with options, loads of load_info and ties as they are drawn. Lengths in m, places in the model's
// space.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "model/model.h"
#include "view/rigid_symbols.h"
#include "view/symbols.h"

namespace kestralum::view {

// A support with options holds a node in one direction, as the analyses find it.
struct SupportHold {
    std::int32_t node = 0;    // 0-based
    std::int32_t record = 0;  // index of the support
    Vec3 direction{};         // unit
    std::int32_t axis = -1;   // 0 x, 1 y, 2 z, with the record's displacement; -1: along a normal
};

// The faces of a support with springs.
struct SupportSprings {
    std::int32_t record = 0;
    std::vector<ElementFace> faces;
};

// Which records act in a frame: those of its load case, or of the cases that its combination has; all where
// the frame has no name.
class ActingCases {
public:
    ActingCases() = default;
    ActingCases(const Model& model, const std::string& frame_name);
    bool operator()(const std::string& case_name) const;
    // The records of a table with LoadOptions that act.
    template <typename Record>
    std::vector<Record> of(const std::vector<Record>& records) const {
        std::vector<Record> out;
        for (const Record& record : records)
            if ((*this)(record.options.case_name)) out.push_back(record);
        return out;
    }

private:
    std::vector<std::string> cases_;  // empty: all
};

struct ConditionTables {
    const Model& model;
    const Mesh& mesh;  // the one that is drawn; holds and springs are of it
    std::span<const SupportHold> holds;
    std::span<const SupportSprings> springs;
    std::span<const double> coordinates;  // node_num × 3, as drawn
    ActingCases acting = {};
    std::optional<double> time = {};  // of the explicit frame that is shown, s; none: before a run
};

// What has one colour and is lit.
struct Solids {
    Color color{};
    std::vector<Arrow> arrows;
    std::vector<TurnArrow> turns;
    std::vector<Cone> cones;
};

struct ConditionSymbols {
    std::vector<Line> lines;
    std::vector<Line> through;  // seen through the model as well
    std::vector<Solids> solids;
    std::vector<Label> labels;
};

// Per held direction a cone that stands outside the body, an arrow along a displacement that is not 0,
// longest where that is largest; springs as zigzags out of their faces to a bar, to a cross where they act in
// all directions; of a tie the edges of both sets of faces, the tied ones crossed like an x, the others like
// a +. Thinned out evenly: cones to about 200 for each support and direction, the others to about 40.
ConditionSymbols support_symbols(const ConditionTables& tables);

// Loads at time 1, without their factor. On faces arrows the way the force acts, about 40 for each load,
// longest where it is largest: they end at the faces, or begin there where it pulls outwards; what is 0 has
// none. A remote load has its point, with lines to the faces, and an arrow or most of a circle; gravity an
// arrow beyond the model, rotation its axis with the sense of turning, a heated part its temperature beside
// the name. Remote loads on rigid elements are drawn with those.
ConditionSymbols load_symbols(const ConditionTables& tables);

// Of the explicit analysis: an initial velocity, before a run and at time 0, as an arrow above its nodes, or
// beside them where they move up or down; a prescribed one as an arrow before its nodes, or behind them where
// the model stands in its way, with the value at the time, before a run with its text.
ConditionSymbols velocity_symbols(const ConditionTables& tables);

// What these draw with.

// Some of the faces, spread evenly.
struct FacePlace {
    Vec3 rest{}, drawn{};  // middle of the corners
    Vec3 normal{};         // unit, outwards, as drawn; 0 for a face without area
};
std::vector<FacePlace> spread_faces(const ConditionTables& tables, std::span<const ElementFace> faces,
                                    std::size_t limit, double spacing);

// Arrows at places the way of vectors, the longest `length` long: out of the body they begin there, else they
// end there. Vectors of less than a fiftieth of the longest and those that are not finite have none. Where
// the free end of the middle one is; the origin without any.
Vec3 add_arrows(std::span<const FacePlace> places, std::span<const Vec3> vectors, double length, Solids& out);

// "1.200e+03[Pa]" where all values are one, else the text, cut where it is long.
std::string value_text(std::span<const double> values, const std::string& text, const char* unit);

}  // namespace kestralum::view
