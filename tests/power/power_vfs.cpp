#include "tests/power/power_vfs.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <map>
#include <stdexcept>

namespace power {

namespace {

SimulatedDisk* the_disk = nullptr;
sqlite3_vfs* the_system = nullptr;  // the VFS that accesses real files
sqlite3_syscall_ptr the_open_directory = nullptr;

// The real file follows it in memory.
struct File {
  sqlite3_file base;
  SimulatedDisk::File on_disk;
};

sqlite3_file* system_file(sqlite3_file* file) {
  return reinterpret_cast<sqlite3_file*>(reinterpret_cast<File*>(file) + 1);
}

SimulatedDisk::File disk_file(sqlite3_file* file) {
  return reinterpret_cast<File*>(file)->on_disk;
}

std::string name_in_directory(const char* path) {
  const char* last = std::strrchr(path, '/');
  return last == nullptr ? path : last + 1;
}

int fail_without_power() {
  errno = EIO;
  return -1;
}

// Whether the disk has the file, which is the case while there is a disk.
bool is_on_disk(const char* path) {
  return the_disk != nullptr && the_disk->has(name_in_directory(path));
}

bool is_directory(int fd) {
  struct stat status {};
  return fstat(fd, &status) == 0 && S_ISDIR(status.st_mode);
}

// SQLite opens a directory only to synchronize it.
int open_directory(const char* path, int* fd) {
  the_disk->synchronize_directory();
  return reinterpret_cast<int (*)(const char*, int*)>(the_open_directory)(path, fd);
}

// --- Files

int close_file(sqlite3_file* file) {
  return system_file(file)->pMethods->xClose(system_file(file));
}

int read_file(sqlite3_file* file, void* to, int size, sqlite3_int64 place) {
  if (!the_disk->has_power()) return SQLITE_IOERR_READ;
  return system_file(file)->pMethods->xRead(system_file(file), to, size, place);
}

int write_file(sqlite3_file* file, const void* from, int size, sqlite3_int64 place) {
  const std::string_view octets(static_cast<const char*>(from), static_cast<std::size_t>(size));
  if (!the_disk->write(disk_file(file), static_cast<std::size_t>(place), octets)) return SQLITE_IOERR_WRITE;
  return system_file(file)->pMethods->xWrite(system_file(file), from, size, place);
}

int truncate_file(sqlite3_file* file, sqlite3_int64 size) {
  if (!the_disk->truncate(disk_file(file), static_cast<std::size_t>(size))) return SQLITE_IOERR_TRUNCATE;
  return system_file(file)->pMethods->xTruncate(system_file(file), size);
}

int synchronize_file(sqlite3_file* file, int flags) {
  if (!the_disk->synchronize(disk_file(file))) return SQLITE_IOERR_FSYNC;
  const int code = system_file(file)->pMethods->xSync(system_file(file), flags);
  return the_disk->has_power() ? code : SQLITE_IOERR_FSYNC;
}

int size_of_file(sqlite3_file* file, sqlite3_int64* size) {
  if (!the_disk->has_power()) return SQLITE_IOERR_FSTAT;
  return system_file(file)->pMethods->xFileSize(system_file(file), size);
}

int lock_file(sqlite3_file* file, int level) {
  return system_file(file)->pMethods->xLock(system_file(file), level);
}

int unlock_file(sqlite3_file* file, int level) {
  return system_file(file)->pMethods->xUnlock(system_file(file), level);
}

int check_reserved_lock(sqlite3_file* file, int* is_locked) {
  return system_file(file)->pMethods->xCheckReservedLock(system_file(file), is_locked);
}

int control_file(sqlite3_file* file, int operation, void* argument) {
  return system_file(file)->pMethods->xFileControl(system_file(file), operation, argument);
}

int sector_size(sqlite3_file* file) {
  return system_file(file)->pMethods->xSectorSize(system_file(file));
}

int characteristics(sqlite3_file* file) {
  return system_file(file)->pMethods->xDeviceCharacteristics(system_file(file));
}

// Version 1: without shared memory, which a database that is locked for one process does not need.
constexpr sqlite3_io_methods kMethods = {1,
                                         close_file,
                                         read_file,
                                         write_file,
                                         truncate_file,
                                         synchronize_file,
                                         size_of_file,
                                         lock_file,
                                         unlock_file,
                                         check_reserved_lock,
                                         control_file,
                                         sector_size,
                                         characteristics,
                                         nullptr,
                                         nullptr,
                                         nullptr,
                                         nullptr,
                                         nullptr,
                                         nullptr};

// --- The directory

bool is_permanent(int flags) {
  return (flags & (SQLITE_OPEN_MAIN_DB | SQLITE_OPEN_MAIN_JOURNAL | SQLITE_OPEN_WAL)) != 0;
}

int open_file(sqlite3_vfs*, sqlite3_filename name, sqlite3_file* file, int flags, int* out_flags) {
  file->pMethods = nullptr;
  if (name == nullptr || !is_permanent(flags))
    return the_system->xOpen(the_system, name, file, flags, out_flags);
  if (!the_disk->has_power()) return SQLITE_CANTOPEN;
  const int code = the_system->xOpen(the_system, name, system_file(file), flags, out_flags);
  if (code != SQLITE_OK) return code;
  if (!the_disk->open(name_in_directory(name), &reinterpret_cast<File*>(file)->on_disk)) {
    close_file(file);
    return SQLITE_CANTOPEN;
  }
  file->pMethods = &kMethods;
  return SQLITE_OK;
}

int remove_file(sqlite3_vfs*, const char* name, int synchronize) {
  if (!the_disk->remove(name_in_directory(name))) return SQLITE_IOERR_DELETE;
  const int code = the_system->xDelete(the_system, name, synchronize);
  return the_disk->has_power() ? code : SQLITE_IOERR_DELETE;
}

int access_file(sqlite3_vfs*, const char* name, int flags, int* result) {
  if (!the_disk->has_power()) return SQLITE_IOERR_ACCESS;
  return the_system->xAccess(the_system, name, flags, result);
}

// --- Files that the program itself writes

std::map<int, SimulatedDisk::File>& written_files() {
  static std::map<int, SimulatedDisk::File> files;
  return files;
}

bool is_written(const char* path, int flags) {
  return the_disk != nullptr && (flags & O_ACCMODE) != O_RDONLY &&
         name_in_directory(path).starts_with(kWrittenByTheProgram);
}

sqlite3_vfs& the_vfs() {
  static sqlite3_vfs vfs;
  return vfs;
}

}  // namespace

// Calls from the libraries under test (mpls_wrap).
extern "C" {
int __real_rename(const char* from, const char* to);
int __wrap_rename(const char* from, const char* to) {
  if (!is_on_disk(from)) return __real_rename(from, to);
  if (!the_disk->rename(name_in_directory(from), name_in_directory(to))) return fail_without_power();
  return __real_rename(from, to);
}

int __real_remove(const char* path);
int __wrap_remove(const char* path) {
  if (is_on_disk(path) && !the_disk->remove(name_in_directory(path))) return fail_without_power();
  return __real_remove(path);
}

int __real_unlink(const char* path);
int __wrap_unlink(const char* path) {
  if (is_on_disk(path) && !the_disk->remove(name_in_directory(path))) return fail_without_power();
  return __real_unlink(path);
}

int __real_open(const char* path, int flags, ...);
int __wrap_open(const char* path, int flags, ...) {
  std::va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  SimulatedDisk::File file = 0;
  const bool is_known = is_written(path, flags);
  if (is_known && ((flags & O_CREAT) != 0 || is_on_disk(path)) &&
      !the_disk->open(name_in_directory(path), &file))
    return fail_without_power();
  const int fd = __real_open(path, flags, mode);
  if (is_known && fd >= 0) written_files()[fd] = file;
  return fd;
}

int __real_close(int fd);
int __wrap_close(int fd) {
  written_files().erase(fd);
  return __real_close(fd);
}

// The program only appends.
ssize_t __real_write(int fd, const void* octets, std::size_t size);
ssize_t __wrap_write(int fd, const void* octets, std::size_t size) {
  const auto written = written_files().find(fd);
  if (written == written_files().end()) return __real_write(fd, octets, size);
  struct stat status {};
  if (fstat(fd, &status) != 0) return -1;
  const std::string_view text(static_cast<const char*>(octets), size);
  if (!the_disk->write(written->second, static_cast<std::size_t>(status.st_size), text))
    return fail_without_power();
  return __real_write(fd, octets, size);
}

int __real_fsync(int fd);
int __wrap_fsync(int fd) {
  const auto written = written_files().find(fd);
  if (written != written_files().end())
    return the_disk->synchronize(written->second) ? __real_fsync(fd) : fail_without_power();
  if (the_disk == nullptr || !is_directory(fd)) return __real_fsync(fd);
  return the_disk->synchronize_directory() ? __real_fsync(fd) : fail_without_power();
}
}

PowerVfs::PowerVfs(SimulatedDisk* disk) {
  the_disk = disk;
  the_system = sqlite3_vfs_find("unix");
  sqlite3_vfs& vfs = the_vfs();
  vfs = *the_system;
  vfs.szOsFile = static_cast<int>(sizeof(File)) + the_system->szOsFile;
  vfs.zName = "power";
  vfs.xOpen = open_file;
  vfs.xDelete = remove_file;
  vfs.xAccess = access_file;
  the_open_directory = the_system->xGetSystemCall(the_system, "openDirectory");
  const auto replacement = reinterpret_cast<sqlite3_syscall_ptr>(open_directory);
  if (the_system->xSetSystemCall(the_system, "openDirectory", replacement) != SQLITE_OK ||
      sqlite3_vfs_register(&vfs, 1) != SQLITE_OK)
    throw std::runtime_error("the simulated disk cannot be registered");
}

PowerVfs::~PowerVfs() {
  sqlite3_vfs_unregister(&the_vfs());
  the_system->xSetSystemCall(the_system, "openDirectory", nullptr);
  sqlite3_vfs_register(the_system, 1);
  the_disk = nullptr;
}

}  // namespace power
