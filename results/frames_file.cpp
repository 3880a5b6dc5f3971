#include "results/frames_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cassert>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "model/byte_archive.h"
#include "model/format.h"

namespace kestralum {

namespace {

constexpr std::string_view magic = "KESTRALUM frames";
enum FormVersion : std::uint32_t { plain_form = 1, eroding_form = 2, wide_form = 3 };
// What the frames of wide_form have.
constexpr std::uint32_t removed_table = 1, reaction_table = 2, motion_table = 4, element_table = 8,
                        plastic_table = 16, all_tables = 31;
constexpr std::size_t start_bytes = magic.size() + 2 * sizeof(std::uint32_t);
enum RecordKind : std::uint32_t { head_record = 1, frame_record = 2 };

struct RecordHead {
    std::uint32_t kind = 0, zero = 0;
    std::uint64_t length = 0;  // of the contents, bytes
};

constexpr std::uint64_t filled(std::uint64_t length) {
    return (length + 7) / 8 * 8;
}
constexpr std::uint64_t record_size(std::uint64_t length) {
    return sizeof(RecordHead) + filled(length) + sizeof(std::uint64_t);
}

void append_bytes(std::string& to, const void* from, std::size_t count) {
    to.append(static_cast<const char*>(from), count);
}

void begin_record(std::string& record, RecordKind kind, std::uint64_t length) {
    record.clear();
    record.reserve(record_size(length));
    const RecordHead head{kind, 0, length};
    append_bytes(record, &head, sizeof head);
}

std::uint64_t end_record(std::string& record) {
    record.resize(filled(record.size()), '\0');
    const std::uint64_t sum = checksum(record);
    append_bytes(record, &sum, sizeof sum);
    return sum;
}

// The head's values, in their order, of a model and a run.
template <typename Archive>
void exchange_head(Archive& archive, std::string& model_file_name, std::string& definition,
                   std::uint64_t& hash, Run& run) {
    Mesh& mesh = run.mesh;
    archive(model_file_name, definition, hash, mesh.coordinates, mesh.surface_facets, mesh.surface_part_id,
            mesh.size_info, mesh.max_length, run.history.columns);
}

// Calls visit(table, values) for the tables of a frame behind its row, in the file's order, that `tables`
// has: the same for writing, reading and counting. values: how many there are.
template <typename Visit>
void each_table(const FramesLayout& layout, auto& frame, auto& words, Visit visit) {
    const auto [tables, dofs, elements] = layout;
    visit(frame.mode_vec, dofs);
    visit(frame.node_stress, stress_groups * dofs);
    if (tables & reaction_table) visit(frame.reaction, dofs);
    if (tables & motion_table) visit(frame.velocity, dofs);
    if (tables & motion_table) visit(frame.acceleration, dofs);
    if (tables & element_table) visit(frame.element_stress, 6 * elements);
    if (tables & plastic_table) visit(frame.element_plastic, elements);
    if (tables & removed_table) visit(words, (elements + 63) / 64);
}

std::uint64_t frame_length(std::uint64_t columns, const FramesLayout& layout) {
    std::uint64_t bytes = 8 * (2 + columns);
    const Frame none;
    const std::vector<std::uint64_t> words;
    each_table(layout, none, words,
               [&](const auto& table, std::size_t values) { bytes += values * sizeof table[0]; });
    return bytes;
}

FramesLayout layout_of(const Mesh& mesh, std::uint32_t tables) {
    return {tables, static_cast<std::size_t>(mesh.dof_num()), static_cast<std::size_t>(mesh.element_num())};
}

// What the frames of a run have, as its last one shows.
FramesLayout layout_of(const Run& run) {
    std::uint32_t tables = run.erodes ? removed_table : 0;
    if (!run.results.empty()) {
        const Frame& frame = *run.results.back();
        if (!frame.reaction.empty()) tables |= reaction_table;
        if (!frame.velocity.empty()) tables |= motion_table;
        if (!frame.element_stress.empty()) tables |= element_table;
        if (!frame.element_plastic.empty()) tables |= plastic_table;
    }
    return layout_of(run.mesh, tables);
}

// Version and tables of a file that begins with `start`.
using FileStart = std::array<char, start_bytes>;
std::array<std::uint32_t, 2> version_of(const FileStart& start) {
    std::array<std::uint32_t, 2> out{};
    std::memcpy(out.data(), start.data() + magic.size(), sizeof out);
    if (out[0] < wide_form) out[1] = out[0] == eroding_form ? removed_table : 0;
    return out;
}

// A bit for each element.
std::vector<std::uint64_t> words_of(const Frame& frame, std::size_t elements) {
    std::vector<std::uint64_t> out((elements + 63) / 64, 0);
    for (const std::int32_t e : frame.removed)
        if (const auto word = static_cast<std::size_t>(e) / 64; word < out.size())
            out[word] |= std::uint64_t{1} << (e % 64);
    return out;
}

std::string bytes_of_head(const Model& model, const Run& run) {
    std::string name = model.model_file_name, definition = definition_text(model, run);
    std::uint64_t hash = mesh_hash(run.mesh);
    // the archive takes what it could also read into; a shallow run with what the head has of it
    Run shown;
    const Mesh& mesh = run.mesh;
    shown.mesh.coordinates = mesh.coordinates;
    shown.mesh.surface_facets = mesh.surface_facets;
    shown.mesh.surface_part_id = mesh.surface_part_id;
    shown.mesh.size_info = mesh.size_info;
    shown.mesh.max_length = mesh.max_length;
    shown.history.columns = run.history.columns;
    ByteWriter writer;
    exchange_head(writer, name, definition, hash, shown);
    return writer.take();
}

}  // namespace

std::string frames_file_name(std::string_view model_file_name) {
    return "log\\frames_" + paths::base_name(model_file_name);
}

bool is_frames_file(std::string_view file_name, std::string_view log_folder) {
    const paths::File file = paths::open(file_name, "rb", log_folder);
    std::string begin(magic.size(), '\0');
    return file && std::fread(begin.data(), 1, begin.size(), file.get()) == begin.size() && begin == magic;
}

std::uint64_t mesh_hash(const Mesh& mesh) {
    const auto bytes = [](const auto& values) {
        return std::string_view(reinterpret_cast<const char*>(values.data()),
                                values.size() * sizeof values[0]);
    };
    const std::uint64_t sum = checksum(bytes(mesh.connectivity), checksum(bytes(mesh.coordinates)));
    return checksum(bytes(std::array{static_cast<std::int32_t>(mesh.element_type)}), sum);
}

Descriptor::~Descriptor() {
    if (number_ >= 0) ::close(number_);
}

bool FramesWriter::write(std::string_view bytes) {
    const std::uint64_t before = size_;
    while (!bytes.empty()) {
        const ssize_t written = ::write(file_.number(), bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) {
            trouble_ = path_ + " cannot be written: " + std::strerror(written < 0 ? errno : ENOSPC);
            // what is whole stays
            [[maybe_unused]] const int cut = ::ftruncate(file_.number(), static_cast<off_t>(before));
            size_ = before;
            close();
            return false;
        }
        size_ += static_cast<std::uint64_t>(written);
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

void FramesWriter::begin(const Model& model, const Run& run) {
    path_ = paths::to_platform(frames_file_name(model.model_file_name), run.origin.options.log_folder);
    file_ = Descriptor(::open(path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
    size_ = 0;
    synced_ = std::chrono::steady_clock::now();
    if (!is_open()) {
        trouble_ = path_ + " cannot be written: " + std::strerror(errno);
        return;
    }
    layout_ = layout_of(run);
    std::string start(magic);
    std::array<std::uint32_t, 2> version{run.erodes ? eroding_form : plain_form, 0};
    if ((layout_.tables & ~removed_table) != 0) version = {wide_form, layout_.tables};
    append_bytes(start, version.data(), sizeof version);
    const std::string contents = bytes_of_head(model, run);
    begin_record(record_, head_record, contents.size());
    record_ += contents;
    last_sum_ = end_record(record_);
    if (write(start)) write(record_);
    record_ = {};
}

void FramesWriter::go_on(std::string_view model_file_name, const Run& run, const FramesEnd& end_of_file) {
    path_ = paths::to_platform(frames_file_name(model_file_name), run.origin.options.log_folder);
    layout_ = layout_of(run);
    file_ = Descriptor(::open(path_.c_str(), O_WRONLY | O_CLOEXEC));
    size_ = end_of_file.bytes;
    last_sum_ = end_of_file.sum;
    synced_ = std::chrono::steady_clock::now();
    const auto end = static_cast<off_t>(size_);
    if (is_open() && ::ftruncate(file_.number(), end) == 0 && ::lseek(file_.number(), end, SEEK_SET) == end)
        return;
    trouble_ = path_ + " cannot be written: " + std::strerror(errno);
    close();
}

void FramesWriter::add(const Frame& frame, std::span<const double> row, std::int64_t number) {
    if (!is_open()) return;
    begin_record(record_, frame_record, frame_length(row.size(), layout_));
    append_bytes(record_, &number, sizeof number);
    append_bytes(record_, &frame.n_freq, sizeof frame.n_freq);
    append_bytes(record_, row.data(), row.size_bytes());
    const std::vector<std::uint64_t> words = words_of(frame, layout_.elements);
    each_table(layout_, frame, words, [&](const auto& table, std::size_t values) {
        assert(table.size() == values);
        append_bytes(record_, table.data(), values * sizeof table[0]);
    });
    last_sum_ = end_record(record_);
    constexpr std::chrono::seconds between(1);
    if (write(record_) && std::chrono::steady_clock::now() - synced_ >= between) sync();
}

void FramesWriter::sync() {
    if (!is_open()) return;
    if (::fdatasync(file_.number()) != 0 && errno != EINVAL && errno != EROFS) {
        trouble_ = path_ + " cannot be written: " + std::strerror(errno);
        close();
    }
    synced_ = std::chrono::steady_clock::now();
}

namespace {

// A frame of a record's contents, which are as long as its layout says; what stands before its tables.
struct ReadFrame {
    std::int64_t number = 0;
    std::vector<double> row;
    std::shared_ptr<Frame> frame;
};
ReadFrame frame_of(const std::string& contents, std::size_t columns, const FramesLayout& layout) {
    ReadFrame out{0, std::vector<double>(columns), std::make_shared<Frame>()};
    Frame& frame = *out.frame;
    std::vector<std::uint64_t> words;
    const char* from = contents.data();
    const auto take = [&](void* to, std::size_t count) {
        if (count > 0) std::memcpy(to, from, count);
        from += count;
    };
    take(&out.number, sizeof out.number);
    take(&frame.n_freq, sizeof frame.n_freq);
    take(out.row.data(), 8 * columns);
    each_table(layout, frame, words, [&](auto& table, std::size_t values) {
        table.resize(values);
        take(table.data(), values * sizeof table[0]);
    });
    for (std::size_t e = 0; e < layout.elements && !words.empty(); ++e)
        if (words[e / 64] >> (e % 64) & 1) frame.removed.push_back(static_cast<std::int32_t>(e));
    return out;
}

class FramesOnDisk : public FrameStore {
public:
    FramesOnDisk(Descriptor file, std::uint64_t first, std::size_t columns, const FramesLayout& layout)
        : file_(std::move(file)), first_(first), columns_(columns), layout_(layout) {}
    bool read(std::size_t frame, std::int64_t first, std::span<double> to) const override {
        const std::uint64_t values = 2 + columns_ + static_cast<std::uint64_t>(first);
        return read_bytes(place_of(frame) + 8 * values, to.data(), to.size_bytes());
    }
    std::shared_ptr<const Frame> whole(std::size_t frame) const override {
        std::string contents(frame_length(columns_, layout_), '\0');
        RecordHead head;
        const std::uint64_t place = place_of(frame);
        if (!read_bytes(place - sizeof head, &head, sizeof head) || head.length != contents.size() ||
            !read_bytes(place, contents.data(), contents.size()))
            return nullptr;
        return frame_of(contents, columns_, layout_).frame;
    }

private:
    // Of the contents of a frame's record.
    std::uint64_t place_of(std::size_t frame) const {
        return first_ + frame * record_size(frame_length(columns_, layout_)) + sizeof(RecordHead);
    }
    bool read_bytes(std::uint64_t place, void* to, std::size_t left) const {
        auto* at = static_cast<char*>(to);
        while (left > 0) {
            const ssize_t got = ::pread(file_.number(), at, left, static_cast<off_t>(place));
            if (got < 0 && errno == EINTR) continue;
            if (got <= 0) return false;
            at += got;
            place += static_cast<std::uint64_t>(got);
            left -= static_cast<std::size_t>(got);
        }
        return true;
    }

    Descriptor file_;
    std::uint64_t first_;  // place of the first frame's record, bytes
    std::size_t columns_;
    FramesLayout layout_;
};

}  // namespace

std::shared_ptr<const FrameStore> open_frame_store(std::string_view model_file_name, const Run& run,
                                                   std::size_t columns) {
    const std::string path =
        paths::to_platform(frames_file_name(model_file_name), run.origin.options.log_folder);
    Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    RecordHead head;
    FileStart start;
    if (!file.is_open() || ::pread(file.number(), start.data(), start.size(), 0) != start_bytes ||
        ::pread(file.number(), &head, sizeof head, start_bytes) != sizeof head)
        return nullptr;
    const FramesLayout layout = layout_of(run.mesh, version_of(start)[1]);
    return std::make_shared<FramesOnDisk>(std::move(file), start_bytes + record_size(head.length), columns,
                                          layout);
}

bool FramesReader::fail(std::string why) {
    if (trouble_.empty()) trouble_ = name_ + ": " + std::move(why);
    return false;
}

// The contents of the next record into contents_; false where it is not whole.
bool FramesReader::read_record(std::uint32_t kind) {
    RecordHead head;
    torn_ = false;
    if (whole_ == bytes_) return false;
    torn_ = true;
    if (std::fread(&head, 1, sizeof head, file_.get()) != sizeof head || head.kind != kind ||
        head.length > bytes_ - whole_ || record_size(head.length) > bytes_ - whole_)
        return false;
    contents_.resize(sizeof head + filled(head.length));
    std::memcpy(contents_.data(), &head, sizeof head);
    std::uint64_t sum = 0;
    if (std::fread(contents_.data() + sizeof head, 1, filled(head.length), file_.get()) !=
            filled(head.length) ||
        std::fread(&sum, 1, sizeof sum, file_.get()) != sizeof sum || sum != checksum(contents_))
        return false;
    contents_.resize(sizeof head + head.length);
    contents_.erase(0, sizeof head);
    whole_ += record_size(head.length);
    last_sum_ = sum;
    torn_ = false;
    return true;
}

bool FramesReader::open(std::string_view file_name, std::string_view log_folder, Progress& progress) {
    name_ = file_name;
    errno = 0;
    file_ = paths::open(file_name, "rb", log_folder);
    if (!file_) return fail(std::string("cannot be read: ") + std::strerror(errno));
    FileStart start{};
    if (std::fread(start.data(), 1, start.size(), file_.get()) != start.size() ||
        std::string_view(start.data(), magic.size()) != magic)
        return fail("no frames file: '" + std::string(magic) + "' is expected at its beginning");
    const auto [version, tables] = version_of(start);
    if (version < plain_form || version > wide_form)
        return fail(formatted("a frames file of form %u; this program reads forms %u to %u", version,
                              plain_form, wide_form));
    tables_ = tables;
    if ((tables_ & ~all_tables) != 0)
        return fail(formatted("its frames have tables that this program does not know (%u)", tables_));
    if (std::fseek(file_.get(), 0, SEEK_END) != 0 || std::ftell(file_.get()) < 0)
        return fail(std::string("cannot be read: ") + std::strerror(errno));
    bytes_ = static_cast<std::uint64_t>(std::ftell(file_.get()));
    whole_ = start.size();
    if (std::fseek(file_.get(), static_cast<long>(whole_), SEEK_SET) != 0 || !read_record(head_record))
        return fail("its head is not whole: no frame can be read");
    const bool done = read_head(progress);
    head_.run.erodes = (tables_ & removed_table) != 0;
    return done;
}

bool FramesReader::read_head(Progress& progress) {
    std::string model_file_name, definition;
    Run own;
    ByteReader reader(contents_);
    exchange_head(reader, model_file_name, definition, mesh_hash_, own);
    if (!reader.at_end()) return fail("its head does not end where it should");
    SilentProgress silent(progress);
    auto stored = read_result_text(name_, definition, silent);
    if (!stored) return fail("its definition of the model cannot be read");
    head_ = std::move(*stored);
    Mesh& mesh = head_.run.mesh;
    const auto count = static_cast<std::int32_t>(own.mesh.coordinates.size() / 3);
    const auto& facets = own.mesh.surface_facets;
    if (own.mesh.coordinates.size() != mesh.coordinates.size() ||
        facets.size() != 3 * own.mesh.surface_part_id.size() ||
        std::ranges::any_of(facets, [&](std::int32_t n) { return n < 1 || n > count; }) ||
        std::ranges::any_of(own.mesh.surface_part_id, [&](std::int32_t part) {
            return part < 0 || part >= std::ssize(head_.model.parts);
        }))
        return fail("its head is not that of its model");
    mesh.coordinates = std::move(own.mesh.coordinates);
    mesh.surface_facets = facets;
    mesh.surface_part_id = own.mesh.surface_part_id;
    mesh.size_info = own.mesh.size_info;
    mesh.max_length = own.mesh.max_length;
    head_.model.mesh = mesh;
    head_.run.history.columns = own.history.columns;
    head_.run.results.clear();
    head_.run.origin.model_file_name = model_file_name;
    return true;
}

std::shared_ptr<Frame> FramesReader::next() {
    Run& run = head_.run;
    const std::size_t columns = run.history.columns.size();
    const FramesLayout layout = layout_of(run.mesh, tables_);
    if (!read_record(frame_record)) return nullptr;
    torn_ = contents_.size() != frame_length(columns, layout);
    if (torn_) return nullptr;
    ReadFrame read = frame_of(contents_, columns, layout);
    torn_ = read.number != frames_ + 1;
    if (torn_) return nullptr;
    ++frames_;
    run.history.add(read.row);
    return std::move(read.frame);
}

std::optional<StoredRun> read_frames_file(std::string_view file_name, std::string_view log_folder,
                                          Progress& progress) {
    FramesReader reader;
    if (!reader.open(file_name, log_folder, progress)) {
        progress.error("%s", reader.trouble().c_str());
        return std::nullopt;
    }
    StoredRun& stored = reader.head();
    while (auto frame = reader.next()) {
        stored.run.results.push_back(std::move(frame));
        if (!progress.cancelled()) continue;
        progress.error("%s: stopped on request", std::string(file_name).c_str());
        return std::nullopt;
    }
    if (stored.run.results.empty()) {
        progress.error("%s: it has no whole frame", std::string(file_name).c_str());
        return std::nullopt;
    }
    if (reader.ends_torn()) {
        auto& notices = stored.run.report.remarks.notices;
        notices.push_back(formatted("%s: frame %lld is not whole: it and what follows it are left out",
                                    std::string(file_name).c_str(),
                                    static_cast<long long>(reader.frames() + 1)));
        progress.notice("%s", notices.back().c_str());
    }
    stored.run.origin.file_name = file_name;
    stored.run.origin.options.log_folder = log_folder;
    return std::move(stored);
}

}  // namespace kestralum
