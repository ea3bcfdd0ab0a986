// Reads the client's list of orders, and walks through one of them.

#include "engine/advantage/client_orders.h"

#include <algorithm>
#include <array>

#include "engine/advantage/assumptions.h"
#include "engine/record/table_path.h"
#include "platform/file.h"
#include "util/runtime.h"

namespace brenik::advantage {
namespace {

constexpr std::size_t kUsualText = 512;
// More than the orders of one index file; the client fills in their handles, and nobody reads them.
constexpr std::size_t kMostOrders = 256;

}  // namespace

void ClientOrder::clear_scopes() {
    top = bottom = {};
    top_limit.reset();
    bottom_limit.reset();
}

// -- The list.

std::string ClientOrders::text_of(Status(BRENIK_CLIENT_CALL* ask)(Handle, char*, U16*),
                                  Handle order) {
    std::string text(kUsualText, '\0');
    auto size = static_cast<U16>(text.size());
    Status status = ask(order, text.data(), &size);
    if (status != 0 && size > text.size()) {
        text.resize(size);
        status = ask(order, text.data(), &size);
    }
    engine_.require(status, "orders", path_, table_);
    text.resize(std::min<std::size_t>(size, text.size()));
    return text;
}

bool ClientOrders::is(Status(BRENIK_CLIENT_CALL* ask)(Handle, U16*), Handle order) {
    if (ask == nullptr) return false;
    U16 answer = 0;
    engine_.require(ask(order, &answer), "orders", path_, table_);
    return answer != 0;
}

U16 ClientOrders::count() {
    U16 count = 0;
    engine_.require(engine_.client().AdsGetNumIndexes(table_, &count), "orders", path_, table_);
    return count;
}

Handle ClientOrders::handle_of(U16 number) {
    Handle order = 0;
    engine_.require(engine_.client().AdsGetIndexHandleByOrder(table_, number, &order), "orders",
                    path_, table_);
    return order;
}

void ClientOrders::add(U16 number, const std::string& file) {
    const ClientLibrary& client = engine_.client();
    const Handle handle = handle_of(number);
    OrderDescription description;
    description.name = upper(text_of(client.AdsGetIndexName, handle));
    description.key = text_of(client.AdsGetIndexExpr, handle);
    description.condition = text_of(client.AdsGetIndexCondition, handle);
    U16 length = 0;
    engine_.require(client.AdsGetKeyLength(handle, &length), "orders", path_, table_);
    description.key_length = length;
    description.unique = is(client.AdsIsIndexUnique, handle);
    description.descending = is(client.AdsIsIndexDescending, handle);
    description.custom = is(client.AdsIsIndexCustom, handle);
    using expression::Expression;
    try {
        std::optional<Expression> condition;
        if (!description.condition.empty()) {
            condition = Expression::compile(description.condition, layout_);
            if (condition->type() != expression::ResultType::kLogical) {
                throw expression::ExpressionError("condition " + description.condition +
                                                  " is not logical");
            }
        }
        OrderKey key(Expression::compile(description.key, layout_), std::move(condition), length,
                     oem_);
        orders_.push_back(std::make_unique<ClientOrder>(
            ClientOrder{handle, file, std::move(description), std::move(key), {}, {}, {}, {}}));
    } catch (const expression::ExpressionError& error) {
        throw EngineFault(FaultCode::kUnsupported, "orders",
                          file + ": tag " + description.name + ": " + error.what());
    }
}

void ClientOrders::attach_structural() {
    const std::string file = full_path(path_);
    const U16 orders = count();
    for (U16 number = 1; number <= orders; ++number) add(number, file);
    structural_ = orders;
    attach_known(file);
}

std::string ClientOrders::full_path(const std::string& name) const {
    std::string path = record::index_path(name);
    if (path.find_first_of("\\/:") == std::string::npos) {
        path = path_.substr(0, path_.find_last_of("\\/:") + 1) + path;
    }
    return platform::system_path(path);
}

bool ClientOrders::attach_known(const std::string& file) {
    const auto is_of_file = [&](const auto& order) {
        return platform::is_same_path(order->file, file);
    };
    if (std::ranges::none_of(orders_, is_of_file)) return false;
    if (std::ranges::any_of(attached_, is_of_file)) return true;
    for (const auto& order : orders_) {
        if (is_of_file(order)) attached_.push_back(order.get());
    }
    return true;
}

// What the client fills into the array is not used: it may be empty for a file that is open
// already, and the width of its entries is not certain.
std::optional<Refusal> ClientOrders::attach(const std::string& name) {
    const std::string file = full_path(name);
    if (attach_known(file)) return std::nullopt;
    const U16 before = count();
    std::array<Handle, kMostOrders> ignored{};
    auto room = static_cast<U16>(ignored.size());
    const Status status =
        engine_.client().AdsOpenIndex(table_, file.c_str(), ignored.data(), &room);
    if (status != 0) return engine_.refusal(status, file);
    const U16 now = count();
    try {
        for (U16 number = before; number < now; ++number) {
            add(static_cast<U16>(number + 1), file);
        }
    } catch (const EngineFault& fault) {
        if (!is_damage(fault)) throw;
        std::erase_if(orders_,
                      [&](const auto& order) { return platform::is_same_path(order->file, file); });
        return damaged(fault);
    }
    attach_known(file);
    return std::nullopt;
}

// The client closes the other index files; the handles of the structural one may be new afterwards.
void ClientOrders::detach_all() {
    attached_.clear();
    orders_.resize(structural_);
    engine_.require(engine_.client().AdsCloseAllIndexes(table_), "clear orders", path_, table_);
    U16 number = 0;
    for (const auto& order : orders_) {
        order->handle = handle_of(++number);
        order->clear_scopes();
    }
}

std::vector<std::size_t> ClientOrders::numbers_of(const std::string& index_file) const {
    const std::string file = full_path(index_file);
    std::vector<std::size_t> numbers;
    for (std::size_t i = 0; i < attached_.size(); ++i) {
        if (platform::is_same_path(attached_[i]->file, file)) numbers.push_back(i + 1);
    }
    return numbers;
}

// -- A walk.

// A client that does not leave a record would be asked for ever.
bool ClientWalk::step(bool forward) {
    const RecordNumber from = cursor_.at();
    const bool any = cursor_.skip(order_.handle, forward ? 1 : -1);
    if (!any || cursor_.at() != from) return any;
    throw EngineFault(FaultCode::kDamagedFile, "skip",
                      order_.file + ": tag " + order_.description.name +
                          ": the server's library does not get past record " +
                          std::to_string(from));
}

// Where a soft seek ends in a descending order, or past every key, is not certain. So the entry is
// looked for from there in both directions; usually one step decides.
bool ClientWalk::at_or_after(const KeyValue& limit) {
    const bool everything = order_.key.is_text() && !limit.is_null && limit.text.empty();
    if (everything) return first();
    const ClientKey wanted = order_.key.for_client(limit);
    bool any = cursor_.seek(order_.handle, wanted.bytes, wanted.type);
    if (order_.description.descending) {
        if (!any) any = last();
        while (any && place(limit) >= 0) {
            any = step(false);
            if (!any) return first();
        }
    }
    while (any && place(limit) < 0) any = step(true);
    return any;
}

bool ClientWalk::at_or_before(const KeyValue& limit) {
    const bool everything = order_.key.is_text() && !limit.is_null && limit.text.empty();
    if (everything) return last();
    if (!order_.description.descending && cursor_.client().AdsSeekLast != nullptr) {
        const ClientKey wanted = order_.key.for_client(limit);
        if (cursor_.seek_last(order_.handle, wanted.bytes, wanted.type) && place(limit) == 0) {
            return true;
        }
    }
    bool any = at_or_after(limit);
    while (any && place(limit) == 0) any = step(true);
    return any ? step(false) : last();
}

// Equal keys lie in the order of their records.
bool ClientWalk::beside(const KeyValue& key, RecordNumber record, bool forward) {
    const auto lies_before = [&] {
        return order_.description.descending ? cursor_.at() > record : cursor_.at() < record;
    };
    bool any = at_or_after(key);
    while (any && place(key) == 0 && lies_before()) any = step(true);
    if (!forward) return any ? step(false) : last();
    if (any && cursor_.at() == record) any = step(true);
    return any;
}

}  // namespace brenik::advantage
