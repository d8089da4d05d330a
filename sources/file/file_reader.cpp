// The thread ends with its read. It is joined before the next one starts and when the reader is destroyed. A
// result that is posted after that finds its weak pointer expired.
#include "sources/file/file_reader.h"

#include <system_error>
#include <utility>

#include "platform/core/base/fault.h"
#include "platform/core/evm/worker.h"
#include "platform/core/files/read_file.h"

namespace router_file {

Reading read(const std::string& path) {
  Reading reading;
  std::string text;
  std::string reason;
  reading.status = read_file(path, kFileSizeMax, &text, &reason);
  if (reading.status) {
    reading.error = path + ": " + reason;
    return reading;
  }
  ParseError error;
  if (parse(text, &reading.file, &error)) return reading;
  reading.file = {};
  reading.status = kStatusInvalid;
  reading.error =
      path + ":" + std::to_string(error.line) + ":" + std::to_string(error.column) + ": " + error.what;
  return reading;
}

BackgroundReader::BackgroundReader(EventManager* manager, std::string path, Done done, Read read)
    : manager_(manager),
      path_(std::move(path)),
      done_(std::move(done)),
      read_(std::move(read)),
      drops_(manager) {}

BackgroundReader::~BackgroundReader() {
  if (thread_.joinable()) thread_.join();
}

void BackgroundReader::start() {
  is_wanted_ = true;
  again_ = is_reading();
  if (!again_) run();
}

void BackgroundReader::run() {
  const Status status = start_thread();
  if (status == kStatusOk) return;
  Reading reading;
  reading.status = status;
  reading.error = path_ + ": no thread to read it: " + err_text(status);
  is_wanted_ = false;
  done_(std::move(reading));
}

Status BackgroundReader::start_thread() {
  if (const Status status = fault_check("file_reader_thread")) return status;
  try {
    thread_ = std::thread(
        [manager = manager_, path = path_, read = read_, self = std::weak_ptr<BackgroundReader*>(self_)] {
          block_signals_of_thread();
          auto reading = std::make_shared<Reading>(read(path));
          event_post(manager, [self, reading] {
            if (const std::shared_ptr<BackgroundReader*> reader = self.lock()) {
              (*reader)->finished(std::move(*reading));
            }
          });
        });
  } catch (const std::system_error& failure) {
    return static_cast<Status>(failure.code().value());
  }
  return kStatusOk;
}

void BackgroundReader::finished(Reading reading) {
  thread_.join();
  if (!again_ && std::exchange(is_wanted_, false)) return done_(std::move(reading));
  drop(std::move(reading));
  if (std::exchange(again_, false)) run();
}

void BackgroundReader::drop(Reading reading) {
  drops_.run([freed = std::make_shared<Reading>(std::move(reading))] {}, [] {});
}

}  // namespace router_file
