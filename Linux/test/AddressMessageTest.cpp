#include "Linux/AddressMessage.h"

#include "Linux/test/DeviceBytes.h"

#include <gtest/gtest.h>
#include <linux/if_addr.h>

namespace Linux {
namespace {

// As a kernel sent them.
struct RecordedAddress {
    const char* name;
    const char* hex;
    AddressMessage message;
};

const RecordedAddress recordedAddresses[] = {
    {"primary",
     "500000001400020001000000000000000218800002000000080001000a000001080002000a0000010b00"
     "0300566c616e31300000080008008000000014000600ffffffffffffffff8047270080472700",
     {false, 2, {Zinc::IpGenAddr("10.0.0.1"), 24}, false, false}},
    {"peer",
     "50000000140002000100000000000000021e800002000000080001000a090002080002000a0900010b00"
     "0300566c616e31300000080008008000000014000600ffffffffffffffff8047270080472700",
     {false, 2, {Zinc::IpGenAddr("10.9.0.1"), 30}, false, false}},
    {"secondary",
     "500000001400020001000000000000000218810002000000080001000a000002080002000a0000020b00"
     "0300566c616e31300000080008008100000014000600ffffffffffffffff8047270080472700",
     {false, 2, {Zinc::IpGenAddr("10.0.0.2"), 24}, true, false}},
    {"ipv6",
     "480000001400020001000000000000000a40c000020000001400010020010db800000000000000000000"
     "000114000600ffffffffffffffff814727008147270008000800c0000000",
     {false, 2, {Zinc::IpGenAddr("2001:db8::1"), 64}, false, false}},
};

TEST(AddressMessage, IsReadAsTheKernelSentItAndNotFromLessThanAnAddress) {
    for (const RecordedAddress& r : recordedAddresses) {
        std::string_view hex(r.hex);
        size_t whole = hex.size() / 2;
        bool seen = false;
        for (size_t length = sizeof(nlmsghdr); length <= whole; ++length) {
            MessageBytes all{hex};
            std::vector<uint8_t> bytes(length);
            std::memcpy(bytes.data(), &all.header(), length);
            void* start = bytes.data();
            auto& header = *static_cast<nlmsghdr*>(start);
            header.nlmsg_len = static_cast<uint32_t>(length);
            auto address = decodeAddress(header);
            EXPECT_FALSE(seen && !address) << r.name << " " << length;
            seen = address.has_value();
            EXPECT_FALSE(seen && length < sizeof(nlmsghdr) + 8 + 8) << r.name << " " << length;
            if (length == whole) {
                EXPECT_EQ(address, r.message) << r.name;
            }
        }
        EXPECT_TRUE(seen);
    }
}

TEST(AddressMessage, WhatIsNoAddressIsNone) {
    AddressSpecimen specimen{.ifIndex = 3, .address = "10.0.0.1"};
    MessageBytes bytes = specimen.bytes();
    EXPECT_TRUE(decodeAddress(bytes.header()));
    bytes.header().nlmsg_type = RTM_NEWLINK;
    EXPECT_FALSE(decodeAddress(bytes.header()));
    EXPECT_FALSE(
        decodeAddress(AddressSpecimen{.ifIndex = 0, .address = "10.0.0.1"}.bytes().header()));
    EXPECT_FALSE(decodeAddress(
        AddressSpecimen{.ifIndex = 3, .address = "10.0.0.1", .prefixLen = 33}.bytes().header()));
    EXPECT_TRUE(
        decodeAddress(AddressSpecimen{.ifIndex = 3, .address = "2001:db8::1", .prefixLen = 128}
                          .bytes()
                          .header()));
}

TEST(AddressMessage, TellsADuplicate) {
    AddressSpecimen specimen{.ifIndex = 3, .address = "2001:db8::1", .flags = IFA_F_DADFAILED};
    EXPECT_TRUE(decodeAddress(specimen.bytes().header())->duplicate);
    // The same bit as secondary for IPv4 means something else there.
    specimen.flags = IFA_F_TEMPORARY;
    EXPECT_FALSE(decodeAddress(specimen.bytes().header())->secondary);
}

} // namespace
} // namespace Linux
