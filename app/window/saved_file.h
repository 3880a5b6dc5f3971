// Files that the window saves.
#pragma once

#include <QString>
#include <string_view>

namespace kestralum {

// The whole file or none; a former one stays meanwhile. Why that was not possible; empty: done.
QString save_whole(const QString& file_name, std::string_view bytes);

}  // namespace kestralum
