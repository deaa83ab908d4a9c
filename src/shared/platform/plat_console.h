// The console of a command-line program: whether a stream is a terminal, and Ctrl-C taken as a
// request rather than as the end of the process.
#pragma once

// GetConsoleMode succeeds: true when descriptor `fd` is a terminal (isatty).
bool plat_is_terminal(int fd);

// SetConsoleCtrlHandler: with `on`, Ctrl-C (SIGINT) no longer ends the process but is counted,
// so that a program can finish a job in order; with `on` false the default returns (the count
// stays). The count is the one piece of state the handler may touch; it is process-wide
// because the signal is.
void plat_catch_interrupts(bool on);
// How many Ctrl-C have arrived since the process started.
int plat_interrupt_count();

// GenerateConsoleCtrlEvent(CTRL_C_EVENT): Ctrl-C for the process `pid` alone (SIGINT). False
// when it could not be sent.
bool plat_interrupt_process(int pid);
