#include "remote/Address.hpp"

#include <gtest/gtest.h>

namespace remote {
namespace {

struct AddressCase {
  const char *text;
  const char *canonical;  // null: no address
  const char *name = "";
};

TEST(Address, IsReadInEveryFormThatPeopleWrite) {
  for (const AddressCase &row :
       {AddressCase{"Mac.example", "mac.example:4116", "mac.example"},
        AddressCase{"mac:5000", "mac:5000", "mac:5000"},
        AddressCase{"10.0.0.1:4116", "10.0.0.1:4116", "10.0.0.1"},
        AddressCase{"FE80::1", "[fe80::1]:4116", "fe80::1"},
        AddressCase{"[::1]", "[::1]:4116", "::1"}, AddressCase{"[::1]:99", "[::1]:99", "[::1]:99"},
        AddressCase{"", nullptr}, AddressCase{"mac:", nullptr}, AddressCase{"mac:65536", nullptr},
        AddressCase{"[::1]99", nullptr}, AddressCase{"two words", nullptr}}) {
    const auto address = Address::fromText(row.text);
    ASSERT_EQ(address.has_value(), row.canonical != nullptr) << row.text;
    if (address) {
      EXPECT_EQ(address->text(), row.canonical);
      EXPECT_EQ(address->name(), row.name);
    }
  }
}

}  // namespace
}  // namespace remote
