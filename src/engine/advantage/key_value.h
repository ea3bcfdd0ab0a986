// Keys as values: what an order's key expression gives for a record, and how two keys compare.
//
// The client gives keys as bytes whose encoding is its own affair. So scopes, seeks and neighbours
// are decided on the value of the key expression instead. Text compares byte by byte, as the index
// sorts it.

#pragma once

#include <optional>
#include <string>

#include "engine/advantage/client_functions.h"
#include "engine/expression/expression.h"
#include "engine/record/table_layout.h"
#include "util/runtime.h"
#include "util/value.h"

namespace brenik::advantage {

struct KeyValue {
    bool is_null = false;
    double number = 0;  // numbers, days, moments and logicals
    std::string text;   // in an order of text
};

// A key as a seek of the client takes it.
struct ClientKey {
    std::string bytes;
    U16 type = 0;
};

class OrderKey {
  public:
    // `length` is that of the order's keys, in bytes. `oem` says that the client recodes the
    // table's text.
    OrderKey(expression::Expression key, std::optional<expression::Expression> condition,
             std::size_t length, bool oem)
        : key_(std::move(key)), condition_(std::move(condition)), length_(length), oem_(oem) {}

    bool is_text() const { return key_.type() == expression::ResultType::kCharacter; }
    // False for a record that the order's condition leaves out.
    bool takes(const record::RecordView& record) const {
        return !condition_ || condition_->is_true(record);
    }
    // Text is as long as the key.
    KeyValue of(const record::RecordView& record) const;
    // Text is as long as given, up to the key's length. A value of another kind than the key's is
    // EngineFault kUnsuitableValue.
    KeyValue sought(const Value& value) const;
    // True for text that is longer than every key.
    bool is_longer(const Value& value) const {
        return is_text() && trim_right(value.text()).size() > key_.width();
    }
    // Below 0, 0, above 0, as `key` lies to `limit` in ascending order. A limit of text is compared
    // with the beginning of the key.
    static int compare(const KeyValue& key, const KeyValue& limit);
    ClientKey for_client(const KeyValue& key) const;

  private:
    KeyValue sought_moment(const Value& value) const;

    expression::Expression key_;
    std::optional<expression::Expression> condition_;
    std::size_t length_;
    bool oem_;
};

}  // namespace brenik::advantage
