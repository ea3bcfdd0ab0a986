// File shares: the file system of a folder, and the session with the server behind it.
//
// A share differs from a disk in three ways that can cost records. Locks may stay on this computer.
// The writes of others may not be visible. The session with the server can end, and all its locks
// with it, while a program continues. share_facts() reports the first two, as far as the system's
// description of the mount shows them; ShareSession reports the third.
// system's own description of the mount does. ShareSession tells the third.

#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace brenik::platform {

// What the system knows about the file system of a file or folder. A text is empty if there is
// nothing to report.
struct ShareFacts {
    bool remote = false;   // on another computer, as far as the system tells
    std::string type;      // the system's name for the type, such as "cifs"
    std::string options;   // mount options, as the system lists them
    std::string unsound;   // why nothing may be written there
    std::string doubtful;  // what can still go wrong there
};
ShareFacts share_facts(const std::string& path);

// All Files on one share use one session with its server. When one of them detects that the session
// was lost, it is lost for all: none of their locks counts any more.
class ShareSession {
  public:
    enum class Kind { kLocal, kSmb, kOther };
    // The session of the file system with this device number. Calls `kind_of` for a new number.
    static ShareSession& of(std::uint64_t device, const std::function<Kind()>& kind_of);

    bool remote() const { return kind_ != Kind::kLocal; }
    bool smb() const { return kind_ == Kind::kSmb; }
    // How often the session was lost.
    unsigned losses() const { return losses_; }
    // `system_code`: the error that told of the loss, if one did.
    void lose(int system_code = 0);
    // False from a loss by an error that says that the server does not answer, until a file is
    // opened there.
    bool reachable() const { return reachable_; }
    void reach() { reachable_ = true; }
    // Counts a loss if the system has reconnected by itself since the last check. Reads the
    // system's counter; makes no call to the server.
    void look();

  private:
    explicit ShareSession(Kind kind);

    Kind kind_;
    unsigned losses_ = 0;
    bool reachable_ = true;
    std::uint64_t connections_;
};

// True for an error after which nothing done earlier through the open file of a share is reliable.
bool ends_session(int system_code);
// True for those errors after which the next call would only wait for the server again.
bool is_unreachable(int system_code);
// The system's error for a missing session.
int not_connected();

// How often this computer has reconnected to a server that it had lost; 0 if the system does not
// tell.
std::uint64_t count_reconnections();

}  // namespace brenik::platform
