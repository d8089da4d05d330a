// Preloaded into the programs of a chaos run: their wall clock is the kernel's plus the seconds in the file
// CHAOS_CLOCK, which another process changes at any time. Other clocks stay as they are.
#define _GNU_SOURCE
#include <dlfcn.h>
#include <fcntl.h>
#include <stdint.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

static volatile const int64_t* offset;

__attribute__((constructor)) static void map_offset(void) {
  const char* path = getenv("CHAOS_CLOCK");
  const int fd = path ? open(path, O_RDONLY | O_CLOEXEC) : -1;
  if (fd < 0) return;
  void* data = mmap(NULL, sizeof *offset, PROT_READ, MAP_SHARED, fd, 0);
  close(fd);
  if (data != MAP_FAILED) offset = data;
}

static int64_t seconds(void) {
  return offset ? *offset : 0;
}

int clock_gettime(clockid_t id, struct timespec* now) {
  static int (*original)(clockid_t, struct timespec*);
  if (!original) *(void**)&original = dlsym(RTLD_NEXT, "clock_gettime");
  const int status = original(id, now);
  if (status == 0 && (id == CLOCK_REALTIME || id == CLOCK_REALTIME_COARSE)) now->tv_sec += seconds();
  return status;
}

int gettimeofday(struct timeval* restrict now, void* restrict zone) {
  struct timespec precise;
  (void)zone;
  if (clock_gettime(CLOCK_REALTIME, &precise) != 0) return -1;
  now->tv_sec = precise.tv_sec;
  now->tv_usec = precise.tv_nsec / 1000;
  return 0;
}

time_t time(time_t* now) {
  struct timespec precise;
  if (clock_gettime(CLOCK_REALTIME, &precise) != 0) return -1;
  if (now) *now = precise.tv_sec;
  return precise.tv_sec;
}
