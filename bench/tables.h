// Makes sample practices and opens their tables at the engine's seam. Any failure ends the process
// with a message.

#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "engine/engine.h"

namespace brenik::bench {

// Runs the companion tool that lies beside this program. A wide sample has contacts of 45 fields.
void make_sample(const std::filesystem::path& practice, std::size_t contacts, bool wide);

std::unique_ptr<Engine> new_engine();
std::unique_ptr<Table> open_table(Engine& engine, const std::filesystem::path& path);
std::size_t position_of(const Table& table, const std::string& field);
// Makes an order controlling, by its name; physical order without one.
void control(Table& table, const char* order);
// One field's texts of all records that are not deleted, in file order.
std::vector<std::string> texts_of(Table& table, const char* field);

[[noreturn]] void give_up(const std::string& reason);
void expect(bool holds, const char* what);

}  // namespace brenik::bench
