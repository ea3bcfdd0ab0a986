// The client engine: opens tables through the client library of a database server.
//
// The host may use the same library in its process. So the engine touches only what is its own: it
// has one explicit connection and closes each of its handles by itself. What the library keeps for
// the whole process (visibility of deleted records, comparison, date format, server type) is set
// when a call of the host first reaches the client, and put back in end_call(). Without such a
// call, as in the tool, it is put back when the tables are closed or the engine is destroyed.
//
// When the server is lost, so are the connection and every handle. The tables are told, and the
// next open connects anew. assumptions.h lists what is not known for certain about the client.

#pragma once

#include <exception>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <variant>

#include "engine/advantage/client_library.h"
#include "engine/engine.h"

namespace brenik::advantage {

// A table as its engine sees it.
class ClientTable {
  public:
    virtual Handle handle() const = 0;
    // Writes a change that is pending. Returns the client's status; a fault of our own is thrown.
    virtual Status flush_status() = 0;
    // Writes a change that is pending and closes the handle; the table then behaves like an empty
    // one. Returns the first status other than 0. Does nothing if the table is shut or lost.
    virtual Status shut() = 0;
    // The handle is gone, and nothing may be called with it. From now on every use of the table is
    // EngineFault kInputOutput, and shut() only forgets.
    virtual void lose() noexcept = 0;

  protected:
    ~ClientTable() = default;
};

class AdvantageEngine : public Engine {
  public:
    explicit AdvantageEngine(std::shared_ptr<const ClientLibrary> library);
    ~AdvantageEngine() override;
    AdvantageEngine(const AdvantageEngine&) = delete;
    AdvantageEngine& operator=(const AdvantageEngine&) = delete;

    std::string name() const override { return "client"; }
    // The version of the client library; empty if it states none.
    std::string version() const override { return library_->version(); }
    // Throws EngineFault kNoEngine if the library is not usable, and kInputOutput if no server
    // answers: a retry would only wait for the same answer.
    OpenAnswer open(const std::string& path, TableSharing sharing, int controlling = 1) override;
    void end_call() noexcept override { put_settings_back(); }
    // The client may have ended before us, so nothing is called then. The server, or the system for
    // a local one, releases what stays open.
    bool closes_at_unload() const override { return false; }
    std::string last_error() const override { return last_error_; }
    // The next open connects to a server of this type, the remote server first if it may be either.
    // If a connection to another type exists then, its tables are closed.
    int set_server_type(int type) override;
    int server_loaded(const std::string& folder) override;
    // Applies to tables that are opened from now on, and only with a remote server.
    bool set_proprietary_locking(bool on) override;
    bool set_deleted_hidden(bool on) override;
    bool deleted_hidden() const override { return deleted_hidden_; }
    // With the local server; a remote server decides for itself.
    void set_full_durability(bool on) override { full_durability_ = on; }
    void set_index_cache(std::size_t) override {}  // the client manages its own memory
    int write_all_records() override;
    // Also drops the connection and puts the settings of the process back.
    int close_all_tables() override;

    // -- For its tables.

    // The functions of the client. Every call of a table goes through this. Throws EngineFault
    // kNoEngine if the library is not usable.
    const ClientLibrary& client();
    // Opens the file with read-ahead turned off. `characters` and `table_type` are the client's
    // numbers.
    std::variant<Handle, Refusal> open_handle(const std::string& path, TableSharing sharing,
                                              U16 characters, U16 table_type);
    // Returns the client's status. A pending change is to be written before.
    Status close_handle(Handle table) noexcept;
    // A table that is open tells its engine, until it is shut or destroyed. A lost one is dismissed
    // by the engine.
    void enlist(ClientTable& table) { tables_.insert(&table); }
    void dismiss(ClientTable& table) noexcept { tables_.erase(&table); }
    // Whether the connection is one to a remote server.
    bool is_remote() const;
    // With full durability and the local server, waits until what was written is on the disk.
    void keep_durable(Handle table, const std::string& path);

    // Throws EngineFault unless the status is 0, with the client's text and status: kDamagedFile
    // if the client says so, otherwise kInputOutput. Call it right after the function that failed:
    // the client keeps one text. With a handle it also finds out whether the server was lost.
    void require(Status status, const char* operation, const std::string& path, Handle table = 0);
    // The refusal that a status of an open means, also for index files.
    Refusal refusal(Status status, const std::string& path);
    // Keeps the client's text for last_error(), and returns the status.
    Status noted(Status status, const std::string& path);
    // False when the server or the handle is gone; then the tables concerned are told.
    bool answers(Handle table) noexcept;

  private:
    // What the process had before. Empty: not changed by us.
    struct HostSettings {
        std::optional<bool> shows_deleted;
        std::optional<U16> exact;
        std::optional<std::string> date_format;
        std::optional<U16> server_types;  // cannot be read, so the client's usual ones
    };

    void take_settings();
    template <class Setting>
    void note_setting(std::optional<Setting> HostSettings::*setting,
                      const std::optional<Setting>& read, Setting usual);
    void show_deleted();
    void put_settings_back() noexcept;
    void require_setting(Status status, const char* setting) const;
    std::optional<bool> deleted_setting() const;
    Status set_types(U16 types);
    Status connect(const std::string& folder, U16 type, Handle& connection) const;
    bool can_connect(const std::string& folder, U16 type);
    bool connect_for(const std::string& folder);
    bool drop_doubtful_connection();
    Status disconnect() noexcept;
    void lose_connection() noexcept;
    bool still_answers(Handle table) const noexcept;
    Status open_once(const std::string& path, TableSharing sharing, U16 characters, U16 table_type,
                     Handle& table);
    std::string told(Status status, const std::string& path) const;
    int note(const std::exception& fault) noexcept;
    template <class Step>
    int for_each_table(Step step) noexcept;

    std::shared_ptr<const ClientLibrary> library_;
    HostSettings host_;
    HostSettings last_read_;
    std::optional<bool> answer_if_shown_;  // of AdsGetDeleted; libraries may differ
    bool settings_taken_ = false;
    bool deleted_hidden_ = false;
    bool full_durability_ = false;
    bool proprietary_locking_ = false;
    U16 types_;  // for the next connection
    Handle connection_ = 0;
    U16 connected_type_ = 0;
    U16 connected_among_ = 0;  // types_ when it was made
    std::string connected_folder_;
    std::set<ClientTable*> tables_;
    std::string last_error_;
};

}  // namespace brenik::advantage
