#include "model/settings.h"

namespace kestralum {

Settings& settings() {
    static Settings the_settings;
    return the_settings;
}

}  // namespace kestralum
