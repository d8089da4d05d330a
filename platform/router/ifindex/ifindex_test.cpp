// Interface indexes by name, singly and as a list.
#include "platform/router/ifindex/ifindex.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>

#include "platform/core/base/fault.h"
#include "platform/core/evm/test_run_directory.h"
#include "platform/router/model/router_test_support.h"

namespace {

class Ifindex : public router::RouterTest {
 protected:
  Ifindex() { ifindex_attach(&router_); }
  ~Ifindex() override { ifindex_attach(nullptr); }

  static std::unique_ptr<KvDatalist, void (*)(KvDatalist*)> List() {
    KvDatalist* list = nullptr;
    EXPECT_EQ(ifindex_get_index_list(&list), kStatusOk);
    return {list, kvtree_datalist_free};
  }
  // "ge0=7 ge1=5 "
  static std::string TextOf(KvDatalist* list) {
    std::string text;
    const char* key = nullptr;
    const void* value = nullptr;
    std::size_t length = 0;
    EXPECT_EQ(kvtree_datalist_start(list), kStatusOk);
    while (kvtree_datalist_next(list, &key, &value, &length) == kStatusOk) {
      std::uint32_t index = 0;
      if (length == sizeof index) std::memcpy(&index, value, sizeof index);
      text += std::string(key) + '=' + (length == 0 ? "" : std::to_string(index)) + ' ';
    }
    return text;
  }
};

TEST_F(Ifindex, IndexIsFoundByName) {
  AddInterface("ge0", 7);
  std::uint32_t index = 99;
  EXPECT_EQ(ifname_to_index("ge0", &index), kStatusOk);
  EXPECT_EQ(index, 7U);
}

TEST_F(Ifindex, UnknownNameFailsAndWritesNothing) {
  std::uint32_t index = 99;
  EXPECT_EQ(ifname_to_index("ge0", &index), kStatusNoSuchRow);
  EXPECT_EQ(ifname_to_index("", &index), kStatusNoSuchRow);
  EXPECT_EQ(index, 99U);
}

TEST_F(Ifindex, ListHoldsEveryInterface) {
  AddInterface("ge0", 7);
  AddInterface("ge1", 5);
  const auto list = List();
  EXPECT_EQ(TextOf(list.get()), "ge0=7 ge1=5 ");
}

TEST_F(Ifindex, ListHasAnEntryWithoutAValueForAnIndexThatCannotBeRead) {
  AddInterface("ge0", 7);
  AddInterface("ge1", 5);
  const ScopedFault fault("ifindex_list_entry", kStatusIo, 2);
  const auto list = List();
  const char* key = nullptr;
  const void* value = nullptr;
  std::size_t length = 0;
  EXPECT_EQ(kvtree_datalist_next(list.get(), &key, &value, &length), kStatusOk);
  EXPECT_EQ(length, 4U);
  EXPECT_EQ(kvtree_datalist_next(list.get(), &key, &value, &length), kStatusOk);
  EXPECT_STREQ(key, "ge1");
  EXPECT_EQ(length, 0U);
}

TEST_F(Ifindex, EntryOfAListIsWithoutAValueOnceItsInterfaceIsRemovedRenamedOrHasAnotherIndex) {
  for (const char* name : {"ge0", "ge1", "ge2", "ge3"})
    AddInterface(name, 10U + static_cast<unsigned>(name[2]));
  auto list = List();
  const auto other = List();
  Remove("ge0");
  EXPECT_EQ(TextOf(list.get()), "ge0= ge1=59 ge2=60 ge3=61 ");
  AddInterface("ge0", 7);
  Rename("ge1", "ge9", 59);
  Rename("ge2", "ge2", 8);
  EXPECT_EQ(TextOf(list.get()), "ge0= ge1= ge2= ge3=61 ") << "no entry gets a new value";
  EXPECT_EQ(TextOf(other.get()), TextOf(list.get()));
  list.reset();
  Remove("ge3");
  EXPECT_EQ(TextOf(other.get()), "ge0= ge1= ge2= ge3= ");
  Remove("ge9");
}

TEST_F(Ifindex, EntryOfAnInterfaceThatOnlyWentUpKeepsItsValue) {
  AddInterface("ge0", 7);
  const auto list = List();
  router::Interface changed = *router_.find_interface_by_name("ge0");
  changed.up = true;
  changed.description = "to the customer";
  ASSERT_EQ(router_.change_interface(changed), kStatusOk);
  ASSERT_EQ(router_.move_interface(changed.handle, "red"), kStatusOk);
  EXPECT_EQ(TextOf(list.get()), "ge0=7 ");
}

TEST_F(Ifindex, ListOfAnotherModelHasNoValues) {
  AddInterface("ge0", 7);
  const auto list = List();
  ifindex_attach(nullptr);
  EXPECT_EQ(TextOf(list.get()), "ge0= ");
}

TEST_F(Ifindex, WithoutAModelTheServiceIsUnavailable) {
  ifindex_attach(nullptr);
  std::uint32_t index = 0;
  KvDatalist* list = nullptr;
  EXPECT_EQ(ifname_to_index("ge0", &index), kStatusUnavailable);
  EXPECT_EQ(ifindex_get_index_list(&list), kStatusUnavailable);
  EXPECT_EQ(list, nullptr);
}

TEST_F(Ifindex, NullArgumentsAreInvalid) {
  std::uint32_t index = 0;
  EXPECT_EQ(ifname_to_index(nullptr, &index), kStatusInvalid);
  EXPECT_EQ(ifname_to_index("ge0", nullptr), kStatusInvalid);
  EXPECT_EQ(ifindex_get_index_list(nullptr), kStatusInvalid);
  EXPECT_EQ(ifindex_initialize_evm(nullptr), kStatusInvalid);
}

TEST_F(Ifindex, ManagerIsAccepted) {
  const TestRunDirectory directory;
  const std::unique_ptr<EventManager, void (*)(EventManager*)> manager(
      event_manager_create("/dev/test/main", 0), event_manager_destroy);
  ASSERT_NE(manager, nullptr);
  EXPECT_EQ(ifindex_initialize_evm(manager.get()), kStatusOk);
  const ScopedFault fault("ifindex_initialize_evm", kStatusIo);
  EXPECT_EQ(ifindex_initialize_evm(manager.get()), kStatusIo);
}

TEST_F(Ifindex, ListThatCannotBeFilledIsNotGivenOut) {
  AddInterface("ge0", 7);
  AddInterface("ge1", 5);
  for (const char* point : {"kvtree_datalist_create", "kvtree_datalist_add"}) {
    const ScopedFault fault(point, kStatusNoMemory);
    KvDatalist* list = nullptr;
    EXPECT_EQ(ifindex_get_index_list(&list), kStatusNoMemory) << point;
    EXPECT_EQ(list, nullptr) << point;
  }
}

}  // namespace
