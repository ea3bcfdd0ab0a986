// File shares: what a folder lies on, and the session with the server that holds it.
//
// A share differs from a disk in three ways that can cost records. Locks may stay on this computer;
// what others have written may not be seen; and the session with the server can end, with every
// lock in it, while a program goes on working. share_facts() tells the first two as far as the
// system's own description of the mount does. ShareSession tells the third.

#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace brenik::platform {

// What the system says about the file system that a file or folder lies on. Texts are empty where
// there is nothing to say.
struct ShareFacts {
    bool remote = false;   // another computer's, as far as the system tells
    std::string type;      // the system's name for it, such as "cifs"
    std::string options;   // of the mount, as the system lists them
    std::string unsound;   // why nothing may be written there
    std::string doubtful;  // what can go wrong there all the same
};
ShareFacts share_facts(const std::string& path);

// All Files on one share have one session with its server. When one of them finds that it was lost,
// it is lost to all: none of their locks counts any more.
class ShareSession {
  public:
    enum class Kind { kLocal, kSmb, kOther };
    // The session of the file system that the system calls by this number. `kind_of` is asked when
    // the number is met for the first time.
    static ShareSession& of(std::uint64_t device, const std::function<Kind()>& kind_of);

    bool remote() const { return kind_ != Kind::kLocal; }
    bool smb() const { return kind_ == Kind::kSmb; }
    // How often the session was lost.
    unsigned losses() const { return losses_; }
    void lose() { ++losses_; }
    // Counts as a loss when the system has connected again on its own since the last look. Costs a
    // look at what the system counts, and no call to the server.
    void look();

  private:
    explicit ShareSession(Kind kind);

    Kind kind_;
    unsigned losses_ = 0;
    std::uint64_t connections_;
};

// True for an error of a call on an open file of a share after which nothing can be relied on that
// was done through its handle before.
bool ends_session(int system_code);
// True for those of them after which the next call would only wait for the server once more.
bool is_unreachable(int system_code);
// The system's own error for the lack of a session.
int not_connected();

// How many times this computer has connected again to a server that it had lost; 0 where the system
// does not tell.
std::uint64_t count_reconnections();

}  // namespace brenik::platform
