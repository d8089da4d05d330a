#include "platform/store/queue/queue_format.h"

#include <algorithm>
#include <optional>
#include <string_view>
#include <utility>

#include "platform/core/sqlite/row_checksum.h"

namespace kvtree {

namespace {

constexpr std::uint32_t kQueueMagic = 0x5153564d;  // "MVSQ"

enum class QueueChange : std::uint8_t { kAdded = 1, kLost = 2, kAcknowledged = 3, kHeader = 4 };

struct QueueRecord {
  QueueChange change = QueueChange::kAdded;
  std::uint64_t first = 0;   // the sequence; of a header the instance
  std::uint64_t second = 0;  // of a header the next sequence
  wire::OctetSpan content{};
};

std::uint64_t queue_checksum(const QueueRecord& record) {
  const std::string_view content(reinterpret_cast<const char*>(record.content.data()), record.content.size());
  sqlite::RowChecksum checksum;
  checksum.integer(static_cast<std::uint64_t>(record.change)).integer(record.first).integer(record.second);
  return static_cast<std::uint64_t>(checksum.blob(content).result());
}

void write_queue_record(const QueueRecord& record, wire::Octets* octets) {
  wire::Writer writer(octets);
  writer.u64(queue_checksum(record));
  writer.u8(static_cast<std::uint8_t>(record.change));
  writer.u64(record.first);
  writer.u64(record.second);
  writer.octets(record.content);
}

wire::Octets record_octets(const QueueRecord& record) {
  wire::Octets octets;
  write_queue_record(record, &octets);
  return octets;
}

// False for a record that is damaged or not complete.
bool read_queue_record(wire::Reader* reader, QueueRecord* record) {
  const std::uint64_t checksum = reader->u64();
  record->change = static_cast<QueueChange>(reader->u8());
  record->first = reader->u64();
  record->second = reader->u64();
  record->content = reader->octets();
  return reader->ok() && checksum == queue_checksum(*record);
}

void lose_queued(std::uint64_t sequence, QueueState* state) {
  const auto lost = std::ranges::find(state->entries, sequence, &QueuedNotification::sequence);
  if (lost == state->entries.end() || lost + 1 == state->entries.end()) return;
  (lost + 1)->lost_before += lost->lost_before + 1;
  state->entries.erase(lost);
}

class QueueParser {
 public:
  QueueParser(wire::OctetSpan octets, QueueState* state) : rest_(octets), state_(state) {}

  QueueReading parse() {
    read_header();
    while (!rest_.empty() && (read_record() || skip_damage())) {
    }
    reading_.incomplete = rest_.size();
    return reading_;
  }

 private:
  // The record is where it always is, whatever the magic number before it has become.
  void read_header() {
    wire::Reader reader(rest_);
    const bool is_marked = reader.u32() == kQueueMagic;
    QueueRecord header;
    if (!read_queue_record(&reader, &header)) return;
    if (!is_marked) reading_.damaged += sizeof kQueueMagic;
    take_header(header);
    rest_ = rest_.last(reader.left());
  }

  bool read_record() {
    wire::Reader reader(rest_);
    QueueRecord record;
    if (!read_queue_record(&reader, &record)) return false;
    rest_ = rest_.last(reader.left());
    if (record.change == QueueChange::kHeader) {
      take_header(record);
    } else {
      reading_.has_records = true;
      take_record(record);
    }
    return true;
  }

  // Looks for the next whole record, octet by octet. False if there is none.
  bool skip_damage() {
    for (std::size_t skipped = 1; skipped < rest_.size(); ++skipped) {
      wire::Reader reader(rest_.subspan(skipped));
      QueueRecord record;
      if (!read_queue_record(&reader, &record)) continue;
      rest_ = rest_.subspan(skipped);
      reading_.damaged += skipped;
      is_damaged_before_ = true;
      return true;
    }
    return false;
  }

  void take_header(const QueueRecord& header) {
    is_damaged_before_ = false;
    if (std::exchange(reading_.has_header, true)) {
      has_both_headers_ = true;
      return;
    }
    state_->instance = header.first;
    state_->next_sequence = header.second;
    first_new_ = header.second;
  }

  void take_record(const QueueRecord& record) {
    state_->next_sequence = std::max(state_->next_sequence, record.first + 1);
    switch (record.change) {
      case QueueChange::kAdded:
        return take_added(record);
      case QueueChange::kLost:
        return lose_queued(record.first, state_);
      case QueueChange::kAcknowledged:
        while (!state_->entries.empty() && state_->entries.front().sequence <= record.first)
          state_->entries.pop_front();
        return;
      case QueueChange::kHeader:
        return;
    }
  }

  void take_added(const QueueRecord& record) {
    const bool is_damaged_before = std::exchange(is_damaged_before_, false);
    const std::uint64_t missing = is_damaged_before ? count_missing(record) : 0;
    last_ = record.first;
    state_->entries.push_back({record.first, record.second + missing,
                               std::make_shared<wire::Octets>(record.content.begin(), record.content.end())});
  }

  // How many notifications are missing before the next one, beyond those that it counts itself.
  std::uint64_t count_missing(const QueueRecord& next) const {
    if (!last_ && next.first < first_new_) return has_both_headers_ ? 1 : 0;  // at least
    const std::uint64_t expected = last_ ? *last_ + 1 : first_new_;
    if (!reading_.has_header || next.first < expected) return 0;
    const std::uint64_t gap = (next.first - expected) % kSequencesOfAProcess;
    return gap - std::min(gap, next.second);
  }

  wire::OctetSpan rest_;
  QueueState* state_;
  QueueReading reading_;
  std::uint64_t first_new_ = 0;        // the first sequence after those that the file began with
  std::optional<std::uint64_t> last_;  // that was read
  bool is_damaged_before_ = false;     // the next notification
  bool has_both_headers_ = false;
};

}  // namespace

wire::Octets queue_octets(const QueueState& state) {
  wire::Octets octets;
  wire::Writer(&octets).u32(kQueueMagic);
  for (const QueueChange change : {QueueChange::kAdded, QueueChange::kHeader})  // the first as it always was
    write_queue_record({change, state.instance, state.next_sequence}, &octets);
  for (const QueuedNotification& entry : state.entries)
    write_queue_record({QueueChange::kAdded, entry.sequence, entry.lost_before, *entry.content}, &octets);
  return octets;
}

wire::Octets added_octets(const QueuedNotification& entry) {
  return record_octets({QueueChange::kAdded, entry.sequence, entry.lost_before, *entry.content});
}

wire::Octets lost_octets(std::uint64_t sequence) {
  return record_octets({QueueChange::kLost, sequence});
}

wire::Octets acknowledged_octets(std::uint64_t sequence) {
  return record_octets({QueueChange::kAcknowledged, sequence});
}

QueueReading read_queue(wire::OctetSpan octets, QueueState* state) {
  return QueueParser(octets, state).parse();
}

}  // namespace kvtree
