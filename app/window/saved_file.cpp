#include "app/window/saved_file.h"

#include "model/progress.h"
#include "results/text_output.h"

namespace kestralum {

QString save_whole(const QString& file_name, std::string_view bytes) {
    SilentProgress silent;
    return QString::fromStdString(write_whole(
        file_name.toStdString(), "log", [&](TextOutput& out) { out.write(bytes); }, silent));
}

}  // namespace kestralum
