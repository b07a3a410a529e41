// Proofs of the registry that take time: registry_soak PROOF AMOUNT. Ends with 0 when the proof
// holds.

#include "bench/soak/registry_soak.h"

#include <cstdlib>

namespace {

constexpr struct {
    const char *name, *amount, *what;
    void (*run)(long amount);
} kProofs[] = {
    {"kills", "KILLS", "writers killed at random instants beside readers and a watcher",
     prove_kills},
    {"power", "LOSSES", "power losses: writes without a sync are lost, kept or torn",
     prove_power_losses},
    {"order", "SECONDS", "two writers, four readers, two watchers: nothing old, nothing missed",
     prove_order},
    {"pages", "SECONDS", "the same while the shared page is removed, cut short, overwritten",
     prove_pages},
    {"model", "OPERATIONS", "random operations beside a dictionary", prove_model},
    {"turns", "OPERATIONS", "the same by two processes in turn", prove_turns},
    {"crowd", "PROCESSES", "many processes that write and read at once", prove_crowd},
};

int print_usage() {
    std::puts("usage: registry_soak PROOF AMOUNT\n");
    for (const auto &proof : kProofs) {
        std::printf("  %-6s %-11s %s\n", proof.name, proof.amount, proof.what);
    }
    return 2;
}

}  // namespace

int main(int count, char **arguments) {
    testing::InitGoogleTest(&count, arguments);
    const long amount = count == 3 ? std::atol(arguments[2]) : 0;
    for (const auto &proof : kProofs) {
        if (amount > 0 && std::string(proof.name) == arguments[1]) {
            std::printf("%-6s ", proof.name);
            std::fflush(stdout);
            proof.run(amount);
            return testing::Test::HasFailure() ? 1 : 0;
        }
    }
    return print_usage();
}
