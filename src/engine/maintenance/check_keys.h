// Checks the keys of one tag against the records of the table.

#pragma once

#include <vector>

#include "engine/maintenance/check_header.h"
#include "engine/maintenance/index_bytes.h"
#include "engine/make/tag_plan.h"

namespace brenik::maintenance {

class KeyCheck {
  public:
    // `entries` in any order.
    KeyCheck(const make::TagPlan& plan, const IndexBytes& bytes, std::vector<TreeEntry> entries);

    // What is wrong between a tag and one record, which need not exist.
    enum class Wrong {
        kMissing,        // the record has no key
        kStray,          // an entry whose key is not the record's, or that should not exist
        kUnrepresented,  // unique tags: no entry represents the record's key
        kAgain,          // unique and candidate tags: another record has the same key
    };
    struct Suspicion {
        RecordNumber record;
        Wrong wrong;
        std::uint64_t page = 0;  // page of the stray entry
        RecordNumber other = 0;  // kAgain: the record with the same key
    };
    using Suspicions = std::vector<Suspicion>;

    // Checks one record against its entries.
    void check(const record::RecordView& record, Suspicions& found) const;
    // Finds entries of records past the last one.
    void check_past(RecordNumber count, Suspicions& found) const;
    // Finds keys that a unique or candidate tag holds twice.
    void check_unique(Suspicions& found) const;

  private:
    using Entries = std::vector<TreeEntry>;

    bool is_lenient_match(const TreeEntry& entry, const record::RecordView& record) const;

    const make::TagPlan& plan_;
    const IndexBytes& bytes_;
    Entries entries_;                        // sorted by record
    std::vector<std::uint64_t> key_hashes_;  // of unique tags, sorted
};

}  // namespace brenik::maintenance
