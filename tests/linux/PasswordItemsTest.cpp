#include "linux/StoreTest.hpp"

namespace {

using platform::PasswordName;
using testing::ElementsAre;

SecretBytes secret(const std::string &text) {
  return SecretBytes(base::viewOf(text));
}

struct PasswordItems : StoreTest {
  std::string valueOf(const PasswordName &name) {
    const auto match = store.searchPassword(name, /*returnData=*/true);
    return match.value ? std::string(base::textOf(match.value->reveal()))
                       : std::to_string(match.status);
  }
};

TEST_F(PasswordItems, AreTheirNamesAlone) {
  const PasswordName names[] = {{"s", "a", {}},  {"s", "b", {}}, {"t", "a", {}},
                                {"s", "a", "g"}, {"s", "a", ""}, {"s", "a", {}, false}};
  for (const PasswordName &name : names) {
    EXPECT_EQ(store.updatePassword(name, secret("x")), platform::itemNotFound);
    EXPECT_EQ(store.addPassword(name, secret("")), platform::itemSuccess);
    EXPECT_EQ(store.addPassword(name, secret("x")), platform::itemDuplicate);
    EXPECT_EQ(valueOf(name), "");
  }
  EXPECT_EQ(store.updatePassword(names[3], secret("changed")), platform::itemSuccess);
  EXPECT_EQ(store.deletePassword(names[4]), platform::itemSuccess);
  EXPECT_EQ(store.deletePassword(names[4]), platform::itemNotFound);
  EXPECT_EQ(valueOf(names[3]), "changed");
  EXPECT_EQ(valueOf(names[4]), "-25300");
  EXPECT_EQ(valueOf(names[0]), "");
  EXPECT_EQ(valueOf(names[5]), "");
  EXPECT_THAT(reports, ElementsAre());
}

TEST_F(PasswordItems, ComeToAFileOfTheVersionBeforeThem) {
  ASSERT_EQ(store.addIdentity(madeRecord("old"), std::nullopt), platform::itemSuccess);
  runInFile("DROP TABLE passwords; PRAGMA user_version=1");
  const PasswordName name{"s", "a", {}};
  EXPECT_EQ(store.addPassword(name, secret("x")), platform::itemSuccess);
  EXPECT_EQ(valueOf(name), "x");
  EXPECT_EQ(store.searchIdentities({}).records.size(), 1U) << "and nothing is lost";
  EXPECT_THAT(reports, ElementsAre());
}

}  // namespace
