// Whether an SSD and a volume can become a cache.
#pragma once

#include <string>

#include "caches/inventory.h"

namespace cli {

// Throws a Failure unless both are block devices, nobody uses them, no cache has either, and the kernel and
// the library can tell the new cache from all others.
void RequireFreshPair(const Inventory& inventory, const std::string& ssd, const std::string& volume);

// The section name for a new entry: `wanted`, or when that is empty the kernel's name of the pair. Throws a
// Failure when a cache has it.
std::string FreshName(const Inventory& inventory, const std::string& wanted, const std::string& ssd,
                      const std::string& volume);

// Why a text is no section name for an entry; empty when it is one.
std::string CheckEntryName(const std::string& name);

}  // namespace cli
