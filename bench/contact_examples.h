// Whole contacts to add: those of the practice, with other keys in every order.

#pragma once

#include <vector>

#include "engine/table.h"
#include "random.h"

namespace brenik::bench {

// One value per field, in their order; nil for memos, which stay blank.
using Contact = std::vector<Value>;

class ContactExamples {
  public:
    // Reads some contacts.
    explicit ContactExamples(Table& contacts);

    // The identifier is that of the example.
    Contact next(Random& random) const;

  private:
    std::vector<Contact> contacts_;
    std::vector<std::size_t> names_;  // positions of the fields of text in the orders
    std::size_t balance_, entry_;
};

}  // namespace brenik::bench
