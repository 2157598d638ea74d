// A look into the running daemon's global variables, by the names in its symbol table: nothing in the daemon helps and
// nothing in it notices. Supervisor's thread; microseconds, once the program's file was read.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// A variable's offset from where the program is loaded, read off an ELF file's symbol table; 0: not there, or stripped.
uint64_t SymbolOffset(const std::string& program, std::string_view name);

// The first `size` bytes of the variable; empty when the daemon does not run, or its program tells no such name.
std::vector<uint8_t> DaemonVariable(std::string_view name, size_t size);
