// What a model is made of, in groups, for the tree beside the view. No Qt here.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "app/window/shown_model.h"
#include "input/record_places.h"
#include "view/part_look.h"

namespace kestralum {

struct OutlineItem {
    std::string name;
    std::string detail;         // what it is, a few words
    view::Highlight highlight;  // what it holds, of the drawn mesh
    std::string file;           // where its record stands; empty: nowhere
    std::string record;         // as written, one blank between the tokens
    std::int64_t line = 0;      // of the record, from 1; 0: not found
    std::int32_t part = -1;     // a part: its index
    std::int32_t frame = 0;     // a result: its frame, from 1
};

struct OutlineGroup {
    std::string name;
    std::vector<OutlineItem> items;
};

// Groups without items are left out. `model_text` and `control_text`: the files as they are now, empty where
// there are none.
std::vector<OutlineGroup> outline_of(const ShownModel& shown, std::string_view model_text,
                                     std::string_view control_text);

}  // namespace kestralum
