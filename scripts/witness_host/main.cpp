/**
 * One run of scripts/witness on the library that the dynamic linker finds.
 *
 * Usage: witness_host SEED FOLDER [--calls] [WITHOUT...]
 * FOLDER is empty; WITHOUT is a part of the run to leave out: damage, faults, syncs, worker or pulled.
 */
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

#include "scripts/witness_host/run.h"

int main(int argc, char** argv)
{
    if (argc < 3)
        return 2;
    constexpr unsigned time_limit_s = 120;
    alarm(time_limit_s);
    Features features;
    bool show_calls = false;
    for (int i = 3; i < argc; i++) {
        const auto is = [&](const char* word) { return strcmp(argv[i], word) == 0; };
        features.damage = features.damage && !is("damage");
        features.faults = features.faults && !is("faults");
        features.syncs = features.syncs && !is("syncs");
        features.worker = features.worker && !is("worker");
        features.pulled = features.pulled && !is("pulled");
        show_calls = show_calls || is("--calls");
    }
    Run(strtoull(argv[1], nullptr, 10), argv[2], features, show_calls).perform();
    std::fflush(stdout);
    _exit(0); // the library's workers go on
}
