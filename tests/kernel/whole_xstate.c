/* Preloaded into linux.uml by uml-run where the processor's extended state is larger than the guest kernel's
 * buffer.
 *
 * The host's kernel takes NT_X86_XSTATE only as a whole; a guest kernel whose buffer is smaller reads a part
 * of it and is refused when it writes that part back, which kills its first process. Here a tracer may read
 * and write the first octets only: the rest of what it writes is the initial state, as of components that a
 * program has never used.
 *
 * linux.uml traces from one thread, so one static area is enough; its stacks are too small for it. */
#define _GNU_SOURCE
#include <cpuid.h>
#include <dlfcn.h>
#include <elf.h>
#include <stdarg.h>
#include <stdint.h>
#include <string.h>
#include <sys/ptrace.h>
#include <sys/types.h>
#include <sys/uio.h>

enum { kAreaSize = 65536, kHeaderOffset = 512, kHeaderSize = 64, kFirstExtended = 2, kComponents = 63 };

typedef long (*Ptrace)(enum __ptrace_request request, ...);

static Ptrace next_ptrace;
static uint8_t area[kAreaSize];
static uint64_t component_end[kComponents];

__attribute__((constructor)) static void prepare(void) {
  *(void**)&next_ptrace = dlsym(RTLD_NEXT, "ptrace");
  for (unsigned component = kFirstExtended; component < kComponents; component++) {
    unsigned size = 0, offset = 0, flags = 0, reserved = 0;
    __cpuid_count(0xd, component, size, offset, flags, reserved);
    component_end[component] = (uint64_t)offset + size;
  }
}

static long read_whole(pid_t pid, size_t* size) {
  struct iovec whole = {area, sizeof area};
  long result = next_ptrace(PTRACE_GETREGSET, pid, (void*)NT_X86_XSTATE, &whole);
  *size = whole.iov_len;
  return result;
}

static long read_part(pid_t pid, struct iovec* part) {
  size_t size = 0;
  long result = read_whole(pid, &size);
  if (result != 0) return result;
  if (part->iov_len > size) part->iov_len = size;
  memcpy(part->iov_base, area, part->iov_len);
  return 0;
}

/* Components that the part does not hold completely are in their initial state. */
static void forget_what_is_missing(size_t part_size) {
  uint64_t in_use = 0;
  memcpy(&in_use, area + kHeaderOffset, sizeof in_use);
  for (unsigned component = kFirstExtended; component < kComponents; component++)
    if (component_end[component] > part_size) in_use &= ~(UINT64_C(1) << component);
  memcpy(area + kHeaderOffset, &in_use, sizeof in_use);
}

static long write_part(pid_t pid, struct iovec* part) {
  size_t size = 0;
  long result = read_whole(pid, &size);
  if (result != 0) return result;
  if (part->iov_len >= size || part->iov_len < kHeaderOffset + kHeaderSize)
    return next_ptrace(PTRACE_SETREGSET, pid, (void*)NT_X86_XSTATE, part);
  memset(area, 0, size);
  memcpy(area, part->iov_base, part->iov_len);
  forget_what_is_missing(part->iov_len);
  struct iovec whole = {area, size};
  return next_ptrace(PTRACE_SETREGSET, pid, (void*)NT_X86_XSTATE, &whole);
}

long ptrace(enum __ptrace_request request, ...) {
  va_list arguments;
  va_start(arguments, request);
  pid_t pid = va_arg(arguments, pid_t);
  void* address = va_arg(arguments, void*);
  void* data = va_arg(arguments, void*);
  va_end(arguments);

  int is_xstate = address == (void*)NT_X86_XSTATE;
  if (is_xstate && request == PTRACE_GETREGSET) return read_part(pid, data);
  if (is_xstate && request == PTRACE_SETREGSET) return write_part(pid, data);
  return next_ptrace(request, pid, address, data);
}
