#include <climits>
#include <thread>

#include "support/fault_injector.h"

/// plug_in_host MODULE: a program that uses the library only through a component that it loads.
int main(int /*argc*/, char** argv) {
    void* const module = dlopen(argv[1], RTLD_NOW);
    if (module == nullptr) return 1;
    using Plug = bool (*)(void (*run)(void (*)()));
    const auto plug = reinterpret_cast<Plug>(dlsym(module, "runWithoutMemory"));
    const auto run = [](void (*calls)()) {
        std::thread([calls] {
            const faults::Memory none("memory", ENOMEM, 0, INT_MAX);
            calls();
        }).join();
    };
    return plug(run) ? 0 : 1;
}
