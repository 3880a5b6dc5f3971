// The frames file "log\frames_NAME" of an explicit run under way: every frame is on disk as soon as it is
// reached, so that a run that is killed leaves them. Binary, little-endian:
//   "KESTRALUM frames"  16 bytes, then the version of the form, 32 bits, and 32 bits of 0
//   records             kind (32 bits), 32 bits of 0, length of the contents (64 bits), the contents, filled
//                       up with zeros to a multiple of 8 bytes, checksum() of all that (64 bits)
// The first record is the head: the model's definition as the text of a result file without frames, what that
// text rounds or leaves out, and the names of the history's columns. One record for each frame follows: its
// number from 1, its time, its row of the history, mode_vec and node_stress in full precision. In a file of
// version 2, which runs have that may take elements out, words of 64 bits follow in each frame: bit e % 64 of
// word e / 64 is set where element e (from 0) is out. In one of version 3 the 32 bits behind the version tell
// which tables follow node_stress in every frame: 2 reaction (64-bit numbers), 4 velocity and acceleration, 8
// element_stress, 16 element_plastic (32-bit), 1 those words, in this order. A record that is not whole ends
// the file for its readers.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "model/paths.h"
#include "results/result_file.h"

namespace kestralum {

// "log\frames_" and what follows the last separator of the model file's name.
std::string frames_file_name(std::string_view model_file_name);

// Whether a file begins as a frames file does.
bool is_frames_file(std::string_view file_name, std::string_view log_folder);

// A file as the system numbers it, closed at the end.
class Descriptor {
public:
    explicit Descriptor(int number = -1) : number_(number) {}
    Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(number_, other.number_);
        return *this;
    }
    ~Descriptor();
    int number() const { return number_; }
    bool is_open() const { return number_ >= 0; }

private:
    int number_;
};

// Where a frames file stands behind a frame: tells the files of two runs apart.
struct FramesEnd {
    std::uint64_t bytes = 0, sum = 0;  // so far; checksum of the last record
    bool operator==(const FramesEnd&) const = default;
    template <typename Archive>
    void serialize(Archive& archive) {
        archive(bytes, sum);
    }
};

// What each frame of a file has.
struct FramesLayout {
    std::uint32_t tables = 0;  // bits: which, see above
    std::size_t dofs = 0, elements = 0;
};

// The file of a run under way. What cannot be written is told by trouble() and ends the file where it was
// whole; later calls then do nothing.
class FramesWriter {
public:
    // A new file with its head. The run's last frame shows which tables all have.
    void begin(const Model& model, const Run& run);
    // Goes on with the file of an earlier run behind frames that have been read.
    void go_on(std::string_view model_file_name, const Run& run, const FramesEnd& end_of_file);

    // Writes a frame and its row of the history with one call of the system; it outlives the program from
    // then on, and the machine's fall a second later (sync() at the latest).
    void add(const Frame& frame, std::span<const double> row, std::int64_t number);
    void sync();
    void close() { file_ = Descriptor(); }

    bool is_open() const { return file_.is_open(); }
    const std::string& path() const { return path_; }
    const std::string& trouble() const { return trouble_; }
    FramesEnd end() const { return {size_, last_sum_}; }

private:
    bool write(std::string_view bytes);
    Descriptor file_;
    FramesLayout layout_;
    std::string path_, trouble_, record_;
    std::uint64_t size_ = 0, last_sum_ = 0;
    std::chrono::steady_clock::time_point synced_{};
};

// Reads such a file frame by frame.
class FramesReader {
public:
    // Opens the file and reads its head; false with the reason in trouble().
    bool open(std::string_view file_name, std::string_view log_folder, Progress& progress);
    // The model and the run without frames; run.history has its columns, run.erodes is that of the file.
    StoredRun& head() { return head_; }
    // Of the mesh in full precision: differs where another mesh, or another numbering of it, was computed on.
    std::uint64_t mesh_hash() const { return mesh_hash_; }

    // The next frame, its row appended to head().run.history; null behind the last whole one.
    std::shared_ptr<Frame> next();
    std::int64_t frames() const { return frames_; }  // read so far
    FramesEnd end() const { return {whole_, last_sum_}; }
    bool ends_torn() const { return torn_; }  // the last next() met a record that is not whole
    const std::string& trouble() const { return trouble_; }

private:
    bool fail(std::string why);
    bool read_head(Progress& progress);
    bool read_record(std::uint32_t kind);
    paths::File file_;
    std::string name_, trouble_, contents_;
    StoredRun head_;
    std::uint64_t mesh_hash_ = 0, whole_ = 0, bytes_ = 0, last_sum_ = 0;
    std::int64_t frames_ = 0;
    std::uint32_t tables_ = 0;  // in each frame
    bool torn_ = false;
};

// The frames of a file that is being written for a run, one behind the other, with rows of so many columns.
// Null where it cannot be opened.
std::shared_ptr<const FrameStore> open_frame_store(std::string_view model_file_name, const Run& run,
                                                   std::size_t columns);

// The model and the whole run that a frames file holds, as read_result_file(); what is not whole at the
// end is left out with a notice.
std::optional<StoredRun> read_frames_file(std::string_view file_name, std::string_view log_folder,
                                          Progress& progress);

std::uint64_t mesh_hash(const Mesh& mesh);

}  // namespace kestralum
