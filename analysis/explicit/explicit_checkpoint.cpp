#include "analysis/explicit/explicit_checkpoint.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "model/byte_archive.h"
#include "model/paths.h"

namespace kestralum {

namespace {

constexpr std::string_view magic = "KESTRALUM state ";
constexpr std::uint32_t form_version = 2;

// What the numbers of the state do not show: how things go on with time.
class Inputs {
public:
    explicit Inputs(ByteWriter& to) : to_(to) {}
    void add(const FieldExpression& e) { to_(e.text); }
    void add(const TimeExpression& e) { to_(e.text, e.start); }
    void add(const LoadOptions& o) { to_(o.factor.text, o.case_name); }
    void add(const Material& m) {
        to_(m.name, m.density, m.young, m.poisson, m.shear_modulus, m.yield_stress, m.hardening, m.expansion,
            m.kinematic, m.hardening_table, m.elastic_shear);
        if (m.erode > 0) to_(m.erode);
    }
    void add(const AnalysisControl& c) {
        to_(c.d_time, c.auto_step, c.step_share, c.output_time, c.scaled_step, c.end_time, c.output_frequency,
            c.c_alfa, c.gravity_axis, c.gravity_sign, c.plastic, c.element_contact);
        if (c.linear_viscosity > 0 || c.quadratic_viscosity > 0)
            to_(c.linear_viscosity, c.quadratic_viscosity);
    }
    void add(const RigidWall& w) {
        to_(w.name, w.kind, w.axis, w.side, w.radius, w.stiffness, w.friction, w.damping, w.box, w.set_name);
        for (const TimeExpression& motion : w.motion) add(motion);
    }
    void add(const VelocityRecord& v) {
        to_(v.name, v.kind, v.axis, v.box);
        add(v.velocity);
    }
    void add(const ContactPair& p) {
        to_(p.name, p.part_name, p.penalty, p.friction, p.damping, p.gap, p.box, p.set_name, p.start_time);
    }
    void add(const Load& l) {
        to_(l.name, l.kind, l.set_name, l.part_name, l.force, l.moment, l.point, l.direction, l.speed,
            l.reference);
        add(l.value);
        for (const FieldExpression& component : l.vector) add(component);
        add(l.options);
    }
    void add(const BoundaryCondition& b) {
        to_(b.name, b.options.fixed, b.options.normal, b.options.case_name);
        for (const FieldExpression& u : b.options.displacement) add(u);
    }
    void add(const RigidForce& f) {
        to_(f.name, f.value);
        add(f.options);
    }
    void add(const RigidCombine& c) {
        to_(c.name, c.stiffness);
        if (c.damped() || c.body_axes) to_(c.damping, c.body_axes);
    }
    template <typename Record>
    void add_all(const std::vector<Record>& records) {
        to_(static_cast<std::uint64_t>(records.size()));
        for (const Record& record : records) add(record);
    }

private:
    ByteWriter& to_;
};

void add_inputs(const Job& job, ByteWriter& writer) {
    const Model& model = job.model;
    Inputs inputs(writer);
    inputs.add(model.control);
    inputs.add_all(model.materials);
    for (const Parameter& p : model.parameters) writer(p.name, p.value);
    for (const Part& part : model.parts) writer(part.name, part.material_id);
    for (const AppliedForce& force : model.forces) inputs.add(force.options);
    inputs.add_all(model.boundary_conditions);
    inputs.add_all(model.rigid_forces);
    inputs.add_all(model.rigid_combines);
    inputs.add_all(model.loads);
    inputs.add_all(model.explicit_tables.walls);
    inputs.add_all(model.explicit_tables.velocity_inputs);
    inputs.add_all(model.explicit_tables.contacts);
    writer(job.options.load_case, job.options.mean_dilatation, job.hexahedra(), job.options.probes);
}

std::string path_of(const Job& job) {
    return paths::to_platform(checkpoint_file_name(job.model.model_file_name), job.options.log_folder);
}

struct FileHead {
    std::array<char, 16> magic{};
    std::uint32_t version = form_version, zero = 0;
    std::uint64_t length = 0, sum = 0;  // of what follows: bytes and checksum
};

bool write_all(int file, const void* from, std::size_t count) {
    const char* at = static_cast<const char*>(from);
    while (count > 0) {
        const ssize_t written = ::write(file, at, count);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        at += written;
        count -= static_cast<std::size_t>(written);
    }
    return true;
}

// Under a temporary name until it is whole on the disk.
std::string put_in_place(const std::string& path, const std::string& contents) {
    FileHead head;
    std::memcpy(head.magic.data(), magic.data(), magic.size());
    head.length = contents.size();
    head.sum = checksum(contents);
    const std::string held = path + ".part";
    bool done = false;
    {
        const Descriptor file(::open(held.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
        done = file.is_open() && write_all(file.number(), &head, sizeof head) &&
               write_all(file.number(), contents.data(), contents.size()) && ::fdatasync(file.number()) == 0;
    }
    if (done && std::rename(held.c_str(), path.c_str()) == 0) return {};
    const std::string reason = std::strerror(errno);
    std::remove(held.c_str());
    return path + " cannot be written: " + reason;
}

// The contents of the file; false with the reason.
bool take_contents(const std::string& path, std::string& contents, std::string& trouble) {
    FileHead head;
    std::string text, reason;
    if (!paths::read_text(path, text, reason)) {
        trouble = path + " cannot be read: " + reason;
        return false;
    }
    if (text.size() >= sizeof head) std::memcpy(&head, text.data(), sizeof head);
    const bool known = std::string_view(head.magic.data(), head.magic.size()) == magic;
    contents = text.substr(std::min(sizeof head, text.size()));
    if (known && head.version == form_version && head.length == contents.size() &&
        head.sum == checksum(contents))
        return true;
    trouble = path + (known && head.version != form_version ? ": of another version of the program"
                                                            : ": no checkpoint, or not a whole one");
    return false;
}

}  // namespace

std::string checkpoint_file_name(std::string_view model_file_name) {
    return "log\\checkpoint_" + paths::base_name(model_file_name);
}

std::uint64_t fingerprint(const Job& job, const ExplicitState& s) {
    ByteWriter writer;
    add_inputs(job, writer);
    writer(mesh_hash(job.mesh()), job.mesh().p_ele_part_id, s.d_time, s.time_num, s.out_time_num,
           s.output_frequency, s.stable_step, s.X, s.mass, s.damping, s.a, s.b, s.supported, s.contact_mass,
           s.contact_b, s.contact_nodes, s.probes, s.history.columns);
    for (const DrivenDofs& driven : s.driven) writer(driven.places);
    writer(s);
    return checksum(writer.bytes());
}

std::string write_checkpoint(const Job& job, const ExplicitState& state, const Checkpoint& of) {
    ByteWriter writer;
    writer(std::string(state.blocks->kernel_name()), of.fingerprint, of.frames, of.frames_end,
           job.run.report.remarks.notices, state);
    return put_in_place(path_of(job), writer.bytes());
}

bool read_checkpoint(Job& job, ExplicitState& state, std::uint64_t own, Checkpoint& out,
                     std::string& trouble) {
    const std::string path = path_of(job);
    std::string contents, kernel;
    if (!take_contents(path, contents, trouble)) return false;
    std::vector<std::string> notices;
    ByteReader reader(contents);
    reader(kernel, out.fingerprint, out.frames, out.frames_end, notices);
    if (kernel != state.blocks->kernel_name())
        trouble = path + ": it was computed with " + kernel + ", this run has " + state.blocks->kernel_name();
    else if (out.fingerprint != own)
        trouble = path + ": it is of another model, control file or options than this run";
    if (!trouble.empty()) return false;
    reader(state);
    if (!reader.at_end()) trouble = path + ": it does not end where it should";
    job.report().remarks.notices = std::move(notices);
    return trouble.empty();
}

}  // namespace kestralum
