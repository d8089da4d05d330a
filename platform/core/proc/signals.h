// Signals that a program handles in its event loop, read from a descriptor.
#pragma once

#include <initializer_list>
#include <optional>
#include <string>

// From here on the signals no longer act on the calling thread and on the threads that it starts. A program
// that another one started with a signal ignored receives it all the same.
void proc_block_signals(std::initializer_list<int> signals);
// The opposite: they act as usual, also one that is pending.
void proc_unblock_signals(std::initializer_list<int> signals);
// A descriptor that becomes readable when one of these blocked signals is pending; -1 with errno.
int proc_open_signals(std::initializer_list<int> signals);

struct ProcSignal {
  int number;
  std::string text;  // "SIGTERM from process 7", or "SIGINT" if no process sent it
};
// The next signal of the descriptor; none if no signal is pending.
std::optional<ProcSignal> proc_read_signal(int fd);
