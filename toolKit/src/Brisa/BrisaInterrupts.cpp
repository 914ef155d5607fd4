// SPDX-License-Identifier: MIT
#include "Brisa/BrisaInterrupts.h"

#include <csignal>

namespace Brisa {

namespace {

volatile std::sig_atomic_t firstSignal = 0;

void remember(int signal) {
    if (firstSignal == 0) {
        firstSignal = signal;
    }
}

} // namespace

Interrupts::Interrupts()
    : handled{{{SIGINT, true, {}},
               {SIGTERM, true, {}},
               {SIGHUP, true, {}},
               {SIGXFSZ, false, {}},
               {SIGPIPE, false, {}}}} {
    firstSignal = 0;
    for (Handling& handling : handled) {
        ::sigaction(handling.signal, nullptr, &handling.before);
        if (handling.before.sa_handler == SIG_IGN) {
            continue;
        }
        struct sigaction action {};
        action.sa_handler = handling.remembered ? remember : SIG_IGN; // a call that waits is interrupted
        ::sigaction(handling.signal, &action, nullptr);
    }
}

Interrupts::~Interrupts() {
    for (const Handling& handling : handled) {
        ::sigaction(handling.signal, &handling.before, nullptr);
    }
}

int Interrupts::signal() {
    return firstSignal;
}

const wchar_t* Interrupts::name() {
    switch (firstSignal) {
    case SIGINT:
        return L"SIGINT";
    case SIGTERM:
        return L"SIGTERM";
    case SIGHUP:
        return L"SIGHUP";
    default:
        return L"";
    }
}

Watch::Hook Interrupts::hook() {
    return [](uint64_t) { return signal() == 0; };
}

} // namespace Brisa
