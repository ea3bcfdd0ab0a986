// Determines the tags of the new index, then builds it next to the old one.

#include "engine/maintenance/rebuild_index.h"

#include <algorithm>

#include "engine/maintenance/check_index.h"
#include "engine/make/index_builder.h"
#include "util/runtime.h"

namespace brenik::maintenance {
namespace {

class TagList {
  public:
    TagList(const record::TableLayout& layout, RepairLog& log, std::string path)
        : layout_(layout), log_(log), path_(std::move(path)) {}

    // False when the index should stay as it is.
    bool collect(FoundTags found) {
        for (const make::TagDefinition& definition : log_.options().like) {
            const make::TagDefinition* other = given(definition.name);
            if (!add_new(other != nullptr ? *other : definition)) return false;
        }
        for (FoundTag& tag : found.tags) {
            if (!take(tag)) return false;
        }
        for (const make::TagDefinition& definition : log_.options().tags) {
            if (!is_taken(definition.name) && !add_new(definition)) return false;
        }
        if (plans_.empty() && !(found.complete && found.unreadable.empty())) {
            log_.refuse(path_,
                        "no tag of the index can be read; restore the index, or give its "
                        "tags with --tag or --like");
            return false;
        }
        report_lost(found);
        return true;
    }

    const std::vector<make::TagPlan>& plans() const { return plans_; }

  private:
    bool is_taken(const std::string& name) const {
        return std::any_of(plans_.begin(), plans_.end(), [&](const make::TagPlan& plan) {
            return equal_ignoring_case(plan.description.name, name);
        });
    }

    const make::TagDefinition* given(const std::string& name) const {
        const auto& tags = log_.options().tags;
        const auto found = std::find_if(
            tags.begin(), tags.end(),
            [&](const make::TagDefinition& tag) { return equal_ignoring_case(tag.name, name); });
        return found == tags.end() ? nullptr : &*found;
    }

    bool take(FoundTag& tag) {
        const std::string& name = tag.description.name;
        if (is_taken(name)) return true;  // a second one of that name
        if (const make::TagDefinition* definition = given(name)) return add_new(*definition);
        if (!tag.plan) tag.plan = std::move(tag.rebuilt);
        if (tag.plan) {
            plans_.push_back(std::move(*tag.plan));
            return true;
        }
        log_.refuse(path_, "tag " + name + ": " + tag.unusable +
                               "; the index stays as it is unless the tag is given with --tag "
                               "or --like");
        return false;
    }

    bool add_new(const make::TagDefinition& definition) {
        try {
            plans_.push_back(make::plan_new_tag(definition, layout_));
            return true;
        } catch (const expression::ExpressionError& error) {
            log_.refuse(path_, "tag " + definition.name + ": " + error.what());
            return false;
        }
    }

    void report_lost(const FoundTags& found) {
        for (const std::string& name : found.unreadable) {
            if (is_taken(name)) continue;
            log_.refuse(path_, "tag " + name +
                                   ": its definition cannot be read, so the new index is "
                                   "without it; supply it with --tag or --like");
        }
        if (found.complete || !log_.options().like.empty()) return;
        std::string names;
        for (const make::TagPlan& plan : plans_) {
            names += (names.empty() ? "" : ", ") + plan.description.name;
        }
        log_.refuse(path_, "the list of tags is damaged: the new index has " + names +
                               ", the old one may have had more");
    }

    const record::TableLayout& layout_;
    RepairLog& log_;
    std::string path_;
    std::vector<make::TagPlan> plans_;
};

void replace_index(OpenTableFiles& files, const HeaderFacts& header,
                   const std::vector<make::TagPlan>& plans, const Progress& progress) {
    const std::string path = files.index.path();
    const auto read = [&](RecordNumber first, MutableBytes into) {
        return files.table.read_at(header.end_of(first - 1), into) == into.size();
    };
    const make::RecordSource records{*header.layout, header.usable, read};
    files.index.close();
    make::build_index(path, records, plans, progress);
}

std::string built(const std::vector<make::TagPlan>& plans, RecordNumber records) {
    return "index rebuilt: " + counted(plans.size(), "tag") + ", " + counted(records, "record");
}

}  // namespace

bool rebuild_index(OpenTableFiles& files, const HeaderFacts& header, RepairLog& log,
                   const Progress& progress) {
    const bool is_new = !files.index.is_open();
    const std::string path = files.index.path();
    FoundTags found;
    if (!is_new) {
        IndexBytes bytes;
        if (!bytes.read(files.index)) {
            log.refuse(path, "another program keeps it locked");
            return false;
        }
        found = find_tags(bytes, *header.layout, path);
    } else {
        found.complete = !log.options().tags.empty() || !log.options().like.empty() ||
                         !header.layout->has_structural_index();
    }
    TagList tags(*header.layout, log, path);
    if (!tags.collect(std::move(found))) return false;
    if (is_new && tags.plans().empty()) return false;
    if (!is_new) log.back_up(files.index);
    try {
        replace_index(files, header, tags.plans(), progress);
    } catch (const EngineFault& fault) {
        log.refuse(path, fault, "; the index stays as it was");
        return false;
    }
    log.done(path, built(tags.plans(), header.usable));
    return true;
}

}  // namespace brenik::maintenance
