// SPDX-License-Identifier: MIT
#include "Brisa/BrisaInterrupts.h"

#include <csignal>

namespace Brisa {

namespace {

volatile std::sig_atomic_t firstSignal = 0;

void keep(int signal) {
    if (firstSignal == 0) {
        firstSignal = signal;
    }
}

void handle(int signal, void (*handler)(int)) {
    struct sigaction action {};
    ::sigaction(signal, nullptr, &action);
    if (action.sa_handler != SIG_IGN) {
        action = {};
        action.sa_handler = handler; // a call that waits is interrupted
        ::sigaction(signal, &action, nullptr);
    }
}

} // namespace

void Interrupts::remember() {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        handle(signal, keep);
    }
    for (const int signal : {SIGXFSZ, SIGPIPE}) {
        handle(signal, SIG_IGN);
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
