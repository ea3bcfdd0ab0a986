// Two doctors in one folder: how they find each other and exchange messages.
//
// They test whether locks, sizes and contents reach the other workstation, so the messages rely on
// none of these. A message, or note, is an empty file whose name is its content; the reader removes
// it. Names are found by listing the folder, because a system may cache for a while that a name
// does not exist.

#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

namespace brenik::tools {

// The files of one doctor. Their names begin with a common prefix and the doctor's own random name.
// The destructor removes all of them.
class Scratch {
  public:
    // Removes files that doctors killed over an hour ago have left. Throws ToolError if it cannot
    // create a file in the folder.
    explicit Scratch(std::string folder);
    ~Scratch();
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;

    const std::string& own_name() const { return own_name_; }
    // The path of a file of `doctor`.
    std::string path_of(const std::string& doctor, const std::string& what) const;
    // The path of a file of ours, which the destructor removes.
    std::string own_path(const std::string& what);
    void make_note(const std::string& what);
    void remove(const std::string& doctor, const std::string& what);
    // The files of all doctors in the folder, each as "NAME-WHAT".
    std::vector<std::string> list() const;
    // Waits up to `limit_ms` until the readers have removed our notes.
    void wait_until_read(int limit_ms) const;

  private:
    void clear_leftovers() const;

    std::string folder_;
    std::string own_name_;
    std::set<std::string> made_;
    std::set<std::string> notes_;
};

// The other doctor did not answer in time.
class NoAnswer : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

class Partner {
  public:
    // Called at each look, with the milliseconds since the first.
    using Waiting = std::function<void(std::int64_t elapsed_ms)>;

    // Waits for another doctor; empty if none comes.
    static std::optional<Partner> find(Scratch& scratch, int limit_s, const Waiting& waiting);

    // True for exactly one of the two.
    bool is_first() const { return scratch_->own_name() < name_; }
    const std::string& name() const { return name_; }
    void tell(const std::string& word);
    // The next message of the other. Throws NoAnswer.
    std::string hear(int limit_s);

  private:
    Partner(Scratch& scratch, std::string name) : scratch_(&scratch), name_(std::move(name)) {}

    Scratch* scratch_;
    std::string name_;
    int told_ = 0;
    int heard_ = 0;
};

}  // namespace brenik::tools
