#include <unistd.h>

#include <exception>

#include "caches/inventory.h"
#include "completion/complete.h"
#include "doctor/check.h"

namespace cli {
namespace {

std::vector<Offer> CheckCodes() {
    std::vector<Offer> codes;
    for (const auto& check : AllChecks()) {
        codes.push_back({check.code, check.title});
    }
    return codes;
}

std::string PairText(const Cache& cache) {
    return cache.Ssd().empty() ? "" : cache.Ssd() + " in front of " + cache.Volume();
}

// By the names of their entries, and those that run by their devices, too.
std::vector<Offer> CacheNames(const Inventory& inventory) {
    std::vector<Offer> names;
    for (const auto& cache : inventory.caches) {
        names.push_back({cache.Name(), PairText(cache)});
        const std::string device = cache.IsUp() ? cache.device.substr(cache.device.rfind('/') + 1) : "";
        if (!device.empty() && device != cache.Name()) {
            names.push_back({device, PairText(cache)});
        }
    }
    return names;
}

std::vector<Offer> EntryNames(const Inventory& inventory) {
    std::vector<Offer> names;
    for (const auto& cache : inventory.caches) {
        if (cache.entry != nullptr) {
            names.push_back({cache.Name(), PairText(cache)});
        }
    }
    return names;
}

}  // namespace

std::vector<Offer> NamesHere(Completion kind) {
    if (kind == Completion::kCheck) {
        return CheckCodes();
    }
    // Who is not root may not ask; the shell then offers what it can without.
    if (geteuid() != 0) {
        return {};
    }
    try {
        const Inventory inventory = TakeInventory({.mostBlocks = 0, .withStatus = false});
        return kind == Completion::kEntry ? EntryNames(inventory) : CacheNames(inventory);
    } catch (const Failure&) {
        return {};
    } catch (const std::exception&) {
        return {};
    }
}

}  // namespace cli
