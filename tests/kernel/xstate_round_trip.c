/* xstate_round_trip: a tracer whose buffer holds the x87, SSE and AVX registers alone changes one register of
 * its child.
 *
 * Prints "accepted" if the kernel accepted the written buffer and the child then had the new value, the old
 * values of the buffer's other registers and the initial state of the registers outside it; "refused" if the
 * kernel refused the buffer. Status 77 if the buffer already has the whole state, 1 if a register has another
 * value. */
#define _GNU_SOURCE
#include <elf.h>
#include <errno.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

enum { kPartSize = 832, kXmm0Offset = 160, kSkipped = 77 };

static const uint64_t kOld[4] = {0x1111, 0x2222, 0x3333, 0x4444};
static const uint64_t kNew[4] = {0xaaaa, 0xbbbb, 0x3333, 0x4444}; /* the tracer writes the lower half */

static int exits(const char* what) {
  perror(what);
  return 1;
}

/* Stops with the old value in ymm0, and in k1 where the processor has one, and looks at both when it runs
 * again. */
static int stop_and_compare(void) {
  uint64_t seen[4], mask = 0x55;
  int has_masks = __builtin_cpu_supports("avx512f");
  long result = SYS_kill, pid = getpid();
  if (has_masks) __asm__ volatile("kmovw %0, %%k1" ::"r"((uint32_t)mask));
  __asm__ volatile(
      "vmovdqu %[old], %%ymm0\n\t"
      "syscall\n\t"
      "vmovdqu %%ymm0, %[seen]"
      : [seen] "=m"(seen), "+a"(result)
      : [old] "m"(kOld), "D"(pid), "S"((long)SIGSTOP)
      : "rcx", "r11", "xmm0", "memory");
  if (has_masks) {
    uint32_t low = 0;
    __asm__ volatile("kmovw %%k1, %0" : "=r"(low));
    mask = low;
  }
  if (memcmp(seen, kNew, sizeof seen) != 0) return 1;
  return has_masks && mask != 0 ? 2 : 0;
}

static pid_t stopped_child(void) {
  pid_t child = fork();
  if (child == 0) {
    if (ptrace(PTRACE_TRACEME, 0, NULL, NULL) != 0) _exit(exits("PTRACE_TRACEME"));
    _exit(stop_and_compare());
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFSTOPPED(status) ? child : -1;
}

static int end_of(pid_t child) {
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

static long transfer(enum __ptrace_request request, pid_t child, struct iovec* vector) {
  return ptrace(request, child, (void*)NT_X86_XSTATE, vector);
}

static int buffer_holds_everything(pid_t child) {
  static uint8_t area[65536];
  struct iovec vector = {area, sizeof area};
  return transfer(PTRACE_GETREGSET, child, &vector) == 0 && vector.iov_len <= kPartSize;
}

int main(void) {
  if (!__builtin_cpu_supports("avx")) return kSkipped;
  pid_t child = stopped_child();
  if (child < 0) return exits("no child");
  if (buffer_holds_everything(child)) return kill(child, SIGKILL), kSkipped;
  static uint8_t part[kPartSize];
  struct iovec vector = {part, sizeof part};
  if (transfer(PTRACE_GETREGSET, child, &vector) != 0 || vector.iov_len != kPartSize)
    return exits("PTRACE_GETREGSET");
  memcpy(part + kXmm0Offset, kNew, 16);
  if (transfer(PTRACE_SETREGSET, child, &vector) != 0) {
    puts(errno == EFAULT ? "refused" : strerror(errno));
    kill(child, SIGKILL);
    return end_of(child) == -1 ? 0 : 1;
  }
  if (ptrace(PTRACE_CONT, child, NULL, NULL) != 0) return exits("PTRACE_CONT");
  int found = end_of(child);
  printf(found == 0 ? "accepted\n" : "another value in %s\n", found == 1 ? "ymm0" : "k1");
  return found;
}
