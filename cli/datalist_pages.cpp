// A page whose records exceed an answer is requested again with half as many items. The size is not increased
// again, since later records are likely to be as large.
#include "cli/datalist_pages.h"

#include <utility>

#include "platform/store/tree/kvtree.h"

namespace cli {

namespace {

constexpr std::uint32_t kFirstPage = 256;  // items

}  // namespace

DatalistPages::DatalistPages(const Session& session, kvtree::Client& client, std::string path,
                             bool structured)
    : session_(session),
      client_(client),
      path_(std::move(path)),
      structured_(structured),
      page_(kFirstPage) {}

kvtree::ListResult DatalistPages::fetch() {
  const std::string path = last_key_.empty() ? path_ : path_ + "/" + last_key_;
  kvtree::ListResult result = client_.datalist(path, page_, structured_);
  while (result.status == kStatusMessageTooLarge && page_ > 1) {
    page_ /= 2;
    result = client_.datalist(path, page_, structured_);
  }
  if (result.status) throw request_failure(session_, result.status);
  return result;
}

std::vector<kvtree::ListItem> DatalistPages::next() {
  if (is_over_ || !session_.out) return {};
  kvtree::ListResult result = fetch();
  is_over_ = result.items.size() < page_;
  if (result.items.empty()) return {};
  const std::string& key = result.items.back().key;
  std::string last = structured_ ? key : kvtree_encode_text(key);  // the structured form's keys are encoded
  if (last == last_key_)
    throw Failure(kExitFailed, path_ + ": the daemon repeats an item; the list is incomplete");
  last_key_ = std::move(last);
  return std::move(result.items);
}

}  // namespace cli
