#include <disk_info/nvme_info.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "log_capture.h"
#include "nvme_ioctl.h"
#include "open_descriptors.h"
#include "private_root.h"

namespace orvane::tavisk::disk_info {
namespace {

using testing::StartsWith;

constexpr char kNode[] = "/dev/block/nvme0n1";

class NvmeInfoTest : public PrivateRootTest {
  protected:
    void SetUp() override {
        PrivateRootTest::SetUp();
        WriteFile(kNode, "");
    }
    // What `operation` prints to standard output.
    template <typename Operation>
    std::string Printed(Operation operation) {
        testing::internal::CaptureStdout();
        (nvme_.*operation)();
        return testing::internal::GetCapturedStdout();
    }

    OpenDescriptorsUnchanged descriptors_;
    LogCapture log_;
    FakeNvme driver_;
    NvmeInfo nvme_{kNode};
};

TEST_F(NvmeInfoTest, IdentityIsTheControllers) {
    std::vector<uint8_t> page = NvmePage(4,
                                         "SERIAL  1234        "
                                         " Model of forty characters, two blanks  "
                                         "FW \x01\x7f\xff x");
    memcpy(&page[80], "\x84\x83\x02\x81", 4);
    memcpy(&page[255], "\xFB\x04\xFB", 3);
    driver_.Expect(kIdentifyController, {.data = page});
    driver_.ExpectSize(512110190592);
    EXPECT_EQ(Printed(&NvmeInfo::DumpInfo),
              "Type: NVMe\n"
              "Serial Number: SERIAL  1234        \n"
              "Model Number:  Model of forty characters, two blanks  \n"
              "Firmware Revision: FW \x01\x7f\xff x\n"
              "NVMe version: 33026.131.132 [0x81028384]\n"
              "FFU support: true\n"
              "Size: 512110190592 (512.1 GB)\n");
    EXPECT_EQ(driver_.commands()[0].addr % 4096, 0U);
}

TEST_F(NvmeInfoTest, NulEndsATextAndOtherOptionalCommandsAreNotFirmwareUpdate) {
    std::vector<uint8_t> page = NvmePage(4, std::string("AB\0CDEFGHIJKLMNOPQRS", 20));
    memcpy(&page[80], "\x00\x04\x01\x00", 4);
    memcpy(&page[255], "\x04\xFB\x04", 3);
    driver_.Expect(kIdentifyController, {.data = page});
    const NvmeInfoData data = nvme_.GetNvmeControllerId();
    EXPECT_EQ(std::string(data.serial_number, 21), std::string("AB") + std::string(19, '\0'));
    EXPECT_EQ(data.version, 0x10400U);
    EXPECT_EQ(data.version_major, 1);
    EXPECT_EQ(data.version_minor, 4);
    EXPECT_EQ(data.version_tertiary, 0);
    EXPECT_FALSE(data.ffu_support);
}

// The drive sends a whole page, though it was asked for 512 bytes.
TEST_F(NvmeInfoTest, HealthIsTheLogsAndDiscardComesBetween) {
    std::vector<uint8_t> page = NvmePage(0, "\x81\x02\x03\xC8\x0A\xFF");
    memcpy(&page[48], "\x00\xF2\x05\x2A\x01\x00\x00\x00", 8);
    memcpy(&page[160], "\x11\x22\x33\x44\x55\x66\x77\x88", 8);
    memcpy(&page[176], "\x18\x27\x36\x45\x54\x63\x72\x81", 8);
    driver_.Expect(kHealthLog, {.data = page});
    driver_.Expect(kNamespaceId, {.result = 7});
    driver_.Expect({0x06, 7, 0, 4096}, {.data = NvmePage(33, "\x02")});
    EXPECT_EQ(Printed(&NvmeInfo::DumpHealthInfo),
              "Percentage Used: 255\n"
              "Available Spare: 200\n"
              "Available Spare Threshold: 10\n"
              "Critical Warning: 129\n"
              "Data Units Written: 5000000000 [2560 TB]\n"
              "Discard Read Value: 1\n"
              "Number of Media Errors: 9833440827789222417\n"
              "Number of Error Log Entries: 9327626991827298072\n");
    EXPECT_EQ(driver_.commands()[0].addr % 4096, 0U);
    EXPECT_EQ(driver_.commands()[1].addr % 4096, 0U);
}

TEST_F(NvmeInfoTest, CallersLengthAndNumberReachTheCommand) {
    alignas(4096) uint8_t buffer[4096] = {};
    driver_.Expect({0x02, 0xFFFFFFFF, 0x03FF0081, 4096}, {.data = {0x5A}});
    EXPECT_EQ(nvme_.GetNvmeLogPage(buffer, 4096, 0x81), 0);
    EXPECT_EQ(buffer[0], 0x5A);
    buffer[0] = 0;
    driver_.Expect(kNamespaceId, {.result = 9});
    driver_.Expect({0x06, 9, 0x00010012, 1024}, {.data = {0xA5}});
    EXPECT_EQ(nvme_.GetNvmeIdentifyData(buffer, 1024, 0x00010012), 0);
    EXPECT_EQ(buffer[0], 0xA5);
    for (const auto& command : driver_.commands()) {
        EXPECT_EQ(command.addr, reinterpret_cast<uintptr_t>(buffer));
    }
}

TEST_F(NvmeInfoTest, PowerStateIsCheckedAgainstTheControllers) {
    const char failed[] = "Failed to get complete NVMe power info\n";
    const struct {
        uint32_t dword0;
        uint8_t last_state;
        size_t descriptor;  // byte 3 of the state's descriptor
        uint8_t flags;
        const char* output;
        const char* error;
    } cases[] = {
        {0, 0, 2051, 0x02, "Current Power State: 0\nIs operational: No\n", ""},
        {3, 4, 2147, 0x02, "Current Power State: 3\nIs operational: No\n", ""},
        {3, 4, 2147, 0xFD, "Current Power State: 3\nIs operational: Yes\n", ""},
        {0xFFFFFFE4, 4, 2179, 0xFD, "Current Power State: 4\nIs operational: Yes\n", ""},
        {5, 4, 2211, 0x00, failed, "Error: Current power state 5 is invalid or exceeds NPSS.\n"},
        {31, 30, 3043, 0x00, failed, "Error: Current power state 31 is invalid or exceeds NPSS.\n"},
        {31, 31, 3043, 0xFF, "Current Power State: 31\nIs operational: No\n", ""}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.output);
        // Every other descriptor says the opposite.
        std::vector<uint8_t> page = NvmePage(263, std::string(1, static_cast<char>(c.last_state)));
        std::fill(page.begin() + 2048, page.end(), static_cast<uint8_t>(~c.flags));
        page[c.descriptor] = c.flags;
        driver_.Expect(kPowerState, {.dword0 = c.dword0});
        driver_.Expect(kIdentifyController, {.data = page});
        testing::internal::CaptureStderr();
        EXPECT_EQ(Printed(&NvmeInfo::GetPowerInfo), c.output);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), c.error);
        EXPECT_EQ(driver_.commands().back().addr % 4096, 0U);
    }
}

// Results of the operations that have nothing to tell.
constexpr char kNoIdentity[] =
    "Type: \nSerial Number: \nModel Number: \nFirmware Revision: \n"
    "NVMe version: 0.0.0 [0x0]\nFFU support: false\nSize: 4096 (0.0 GB)\n";
constexpr char kNoHealth[] = "Failed to get NVMe health info\n";
constexpr char kNoPower[] = "Failed to get complete NVMe power info\n";
constexpr char kNoDiscard[] = "undefined\n";

TEST_F(NvmeInfoTest, FailuresGiveTheEmptyResultAndOneMessage) {
    using Step = std::pair<NvmeRequest, NvmeReply>;
    const NvmeReply refused = {.result = -1, .error = EACCES};
    const NvmeReply status = {.result = 0x2002, .error = 0, .data = {}, .dword0 = 1};
    const Step features = {kPowerState, {}};
    const Step id = {kNamespaceId, {.result = 2}};
    const NvmeRequest name_space = {6, 2, 0, 4096};
    const auto identity = [](NvmeInfo& nvme) { EXPECT_TRUE(nvme.DumpInfo()); };
    const auto health = [](NvmeInfo& nvme) { EXPECT_FALSE(nvme.DumpHealthInfo()); };
    const auto power = [](NvmeInfo& nvme) { nvme.GetPowerInfo(); };
    const auto discard = [](NvmeInfo& nvme) { puts(nvme.GetDiscardReadValue().c_str()); };
    const struct {
        std::vector<Step> script;
        void (*call)(NvmeInfo&);
        std::string output;
        std::string message;  // what standard error begins with; "": it is empty
    } cases[] = {
        {{{kIdentifyController, refused}}, identity, kNoIdentity, "ioctl: Permission denied\n"},
        {{{kIdentifyController, status}}, identity, kNoIdentity, ""},
        {{{kHealthLog, refused}}, health, kNoHealth, "ioctl: Permission denied\n"},
        {{{kHealthLog, status}}, health, kNoHealth, "ioctl: "},
        {{{kPowerState, refused}}, power, kNoPower, "ioctl: Permission denied\n"},
        {{{kPowerState, status}}, power, kNoPower, "ioctl: "},
        {{features, {kIdentifyController, refused}}, power, kNoPower, "ioctl: Permission denied\n"},
        {{features, {kIdentifyController, status}}, power, kNoPower, "ioctl: "},
        {{{kNamespaceId, refused}},
         discard,
         kNoDiscard,
         "ioctl(NVME_IOCTL_ID): Permission denied\n"},
        {{id, {name_space, refused}}, discard, kNoDiscard, "ioctl: Permission denied\n"},
        {{id, {name_space, status}}, discard, kNoDiscard, ""}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << &c - cases);
        for (const auto& [request, reply] : c.script) driver_.Expect(request, reply);
        if (c.output == kNoIdentity) driver_.ExpectSize(4096);
        testing::internal::CaptureStderr();
        testing::internal::CaptureStdout();
        c.call(nvme_);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), c.output);
        const std::string error = testing::internal::GetCapturedStderr();
        EXPECT_THAT(error, StartsWith(c.message));
        EXPECT_EQ(std::count(error.begin(), error.end(), '\n'), c.message.empty() ? 0 : 1);
    }
}

TEST_F(NvmeInfoTest, NodeThatCannotBeOpenedGivesTheEmptyResults) {
    ClearPrivateRoot();
    const char message[] = "open: No such file or directory\n";
    testing::internal::CaptureStderr();
    EXPECT_STREQ(nvme_.GetNvmeControllerId().type, "");
    EXPECT_EQ(Printed(&NvmeInfo::DumpHealthInfo), kNoHealth);
    EXPECT_EQ(Printed(&NvmeInfo::GetPowerInfo), kNoPower);
    EXPECT_EQ(nvme_.GetDiscardReadValue(), "undefined");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              std::string(message) + message + message + message);
}

}  // namespace
}  // namespace orvane::tavisk::disk_info
