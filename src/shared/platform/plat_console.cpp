#include "plat_console.h"

#include <csignal>
#include <unistd.h>

namespace {
volatile std::sig_atomic_t interrupts = 0;

extern "C" void countInterrupt(int) {
    interrupts = interrupts + 1;
}
} // namespace

bool plat_is_terminal(int fd) {
    return isatty(fd) == 1;
}

void plat_catch_interrupts(bool on) {
    struct sigaction action {};
    action.sa_handler = on ? countInterrupt : SIG_DFL;
    sigemptyset(&action.sa_mask);
    // No SA_RESTART: a wait in progress returns early and the caller looks at the count.
    sigaction(SIGINT, &action, nullptr);
}

int plat_interrupt_count() {
    return interrupts;
}

bool plat_interrupt_process(int pid) {
    return pid > 0 && kill(pid, SIGINT) == 0;
}
