// Two doctors in one folder: how they meet and talk.
//
// What they are there to find out is whether locks, sizes and contents reach the other one, so
// their talk relies on none of these. A note is an empty file, and its name says everything;
// whoever reads it removes it. Names are found by listing the folder, since a system may remember
// for a while that there is no file of some name.

#pragma once

#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

namespace brenik::tools {

// The files of one doctor. Their names begin with a word that all doctors have in common and with
// his own, which he makes up by chance. All that he has made vanish with this object.
class Scratch {
  public:
    // Clears away what doctors have left that were killed over an hour ago. Throws ToolError when
    // nothing can be made in the folder.
    explicit Scratch(std::string folder);
    ~Scratch();
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;

    const std::string& own_name() const { return own_name_; }
    // The path of a file of `doctor`.
    std::string path_of(const std::string& doctor, const std::string& what) const;
    // The same of a file of ours, which is removed at the end if it is there.
    std::string own_path(const std::string& what);
    void make_note(const std::string& what);
    void remove(const std::string& doctor, const std::string& what);
    // What lies in the folder: "NAME-WHAT", for each file of a doctor.
    std::vector<std::string> list() const;
    // Waits at most so long until the notes that we made have been removed by their reader.
    void wait_until_read(int limit_ms) const;

  private:
    void clear_leftovers() const;

    std::string folder_;
    std::string own_name_;
    std::set<std::string> made_;
    std::set<std::string> notes_;
};

// The other one has not answered in time.
class NoAnswer : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

class Partner {
  public:
    // Waits for another doctor to come; nothing if none does.
    static std::optional<Partner> find(Scratch& scratch, int limit_s);

    // Of the two exactly one is the first.
    bool is_first() const { return scratch_->own_name() < name_; }
    const std::string& name() const { return name_; }
    void tell(const std::string& word);
    // The next that the other tells. Throws NoAnswer.
    std::string hear(int limit_s);

  private:
    Partner(Scratch& scratch, std::string name) : scratch_(&scratch), name_(std::move(name)) {}

    Scratch* scratch_;
    std::string name_;
    int told_ = 0;
    int heard_ = 0;
};

}  // namespace brenik::tools
