// Replies of the NVMe driver: the printed text and the result of the call for each.
#include <disk_info/nvme_info.h>
#include <nvme_ioctl.h>
#include <storage_test.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace {

class NvmeInfoTest : public StorageTest {
  protected:
    void SetUp() override {
        StorageTest::SetUp();
        PlaceDataPartition("nvme0n1", "nvme0n1p5");
    }
    FakeNvme driver_;
    NvmeInfo nvme_{"/dev/block/nvme0n1"};
};

TEST_F(NvmeInfoTest, IdentityIsTheControllers) {
    const struct {
        std::string texts, version, commands;  // bytes 4, 80 and 255 of the page
        std::string printed, sent;
    } cases[] = {
        {"SERIAL  1234         Model of forty characters, two blanks  FW \x01\x7f\xff x",
         "\x84\x83\x02\x81", "\xFB\x04\xFB",
         "Type: NVMe\nSerial Number: SERIAL  1234        \n"
         "Model Number:  Model of forty characters, two blanks  \n"
         "Firmware Revision: FW \x01\x7f\xff x\nNVMe version: 33026.131.132 [0x81028384]\n"
         "FFU support: true\nSize: 512110190592 (512.1 GB)\n",
         "nvme|NVMe| Model of forty characters, two blanks  |SERIAL  1234        |FW \x01\x7f\xff x"
         "|33026|131|132|1|512110190592"},
        {"AB" + std::string(58, '\0') + "12345678", std::string("\0\4\1\0", 4), "\x04\xFB\x04",
         "Type: NVMe\nSerial Number: AB\nModel Number: \nFirmware Revision: 12345678\n"
         "NVMe version: 1.4.0 [0x10400]\nFFU support: false\nSize: 512110190592 (512.1 GB)\n",
         "nvme|NVMe||AB|12345678|1|4|0|0|512110190592"}};
    for (const auto& c : cases) {
        std::vector<uint8_t> page = NvmePage(4, c.texts);
        std::ranges::copy(c.version, &page[80]);
        std::ranges::copy(c.commands, &page[255]);
        for (int i = 0; i < 2; ++i) {
            driver_.Expect(kIdentifyController, {.data = page});
            driver_.ExpectSize(512110190592);
        }
        EXPECT_EQ(Printed([&] { EXPECT_TRUE(nvme_.DumpInfo()); }), c.printed);
        EXPECT_EQ(Info(), c.sent);
    }
    driver_.Expect(kIdentifyController, {.data = NvmePage(4, std::string("AB\0C", 4))});
    EXPECT_EQ(nvme_.GetNvmeControllerId().serial_number[3], '\0');  // zero after the first NUL
}

// The drive transfers a whole page although the request is for 512 bytes. Counters of 2^63 and more
// are sent with the same 64 bits.
TEST_F(NvmeInfoTest, HealthIsTheLogsFollowedByTheDiscardBehaviour) {
    std::vector<uint8_t> page = NvmePage(0, "\x81\x02\x03\xC8\x0A\xFF");
    memcpy(&page[48], "\x00\xF2\x05\x2A\x01\x00\x00\x00", 8);
    memcpy(&page[160], "\x11\x22\x33\x44\x55\x66\x77\x88", 8);
    memcpy(&page[176], "\x18\x27\x36\x45\x54\x63\x72\x81", 8);
    for (const char* behaviour : {"\x02", "\xF9"}) {
        driver_.Expect(kHealthLog, {.data = page});
        driver_.Expect(kNamespaceId, {.result = 7});
        driver_.Expect({0x06, 7, 0, 4096}, {.data = NvmePage(33, behaviour)});
    }
    EXPECT_EQ(Printed([&] { EXPECT_TRUE(nvme_.DumpHealthInfo()); }),
              "Percentage Used: 255\nAvailable Spare: 200\nAvailable Spare Threshold: 10\n"
              "Critical Warning: 129\nData Units Written: 5000000000 [2560 TB]\n"
              "Discard Read Value: 1\nNumber of Media Errors: 9833440827789222417\n"
              "Number of Error Log Entries: 9327626991827298072\n");
    EXPECT_EQ(Health(),
              "nvme|200|10|255|129|5000000000|-8613303245920329199|-9119117081882253544|0");
}

TEST_F(NvmeInfoTest, LengthAndNumberOfTheCallerReachTheCommand) {
    alignas(4096) uint8_t buffer[4096] = {};
    driver_.Expect({0x02, 0xFFFFFFFF, 0x03FF0081, 4096}, {.data = {0x5A}});
    EXPECT_EQ(nvme_.GetNvmeLogPage(buffer, 4096, 0x81), 0);
    EXPECT_EQ(std::exchange(buffer[0], uint8_t{0}), 0x5A);
    driver_.Expect(kNamespaceId, {.result = 9});
    driver_.Expect({0x06, 9, 0x00010012, 1024}, {.data = {0xA5}});
    EXPECT_EQ(nvme_.GetNvmeIdentifyData(buffer, 1024, 0x00010012), 0);
    EXPECT_EQ(buffer[0], 0xA5);
}

TEST_F(NvmeInfoTest, PowerStateIsCheckedAgainstTheControllers) {
    const struct {
        uint32_t dword0;
        uint8_t last_state;
        size_t descriptor;  // byte 3 of the descriptor of the state
        uint8_t flags;
        const char* sent;
        const char* printed;
    } cases[] = {
        {0, 0, 2051, 0x02, "nvme|0|0", "Current Power State: 0\nIs operational: No\n"},
        {3, 4, 2147, 0x02, "nvme|3|0", "Current Power State: 3\nIs operational: No\n"},
        {0xFFFFFFE4, 4, 2179, 0xFD, "nvme|4|1", "Current Power State: 4\nIs operational: Yes\n"},
        {5, 4, 2211, 0, "nvme|-1|0", "Failed to get complete NVMe power info\n"},
        {31, 31, 3043, 0xFF, "nvme|31|0", "Current Power State: 31\nIs operational: No\n"}};
    for (const auto& c : cases) {
        // All other descriptors have the opposite flags.
        std::vector<uint8_t> page = NvmePage(263, std::string(1, static_cast<char>(c.last_state)));
        std::fill(page.begin() + 2048, page.end(), static_cast<uint8_t>(~c.flags));
        page[c.descriptor] = c.flags;
        for (int i = 0; i < 2; ++i) {
            driver_.Expect(kPowerState, {.dword0 = c.dword0});
            driver_.Expect(kIdentifyController, {.data = page});
        }
        const std::string error = Printed([&] { EXPECT_EQ(Power(), c.sent); });
        EXPECT_EQ(error, c.dword0 != 5
                             ? ""
                             : "Error: Current power state 5 is invalid or exceeds NPSS.\n");
        EXPECT_EQ(Printed([&] { nvme_.GetPowerInfo(); }), c.printed + error);
    }
}

TEST_F(NvmeInfoTest, FailedRequestGivesAnEmptyResultAndAtMostOneMessage) {
    using Step = std::pair<NvmeRequest, NvmeReply>;
    const NvmeReply refused = {.result = -1, .error = EACCES};
    const NvmeReply status = {.result = 0x2002, .error = 0, .data = {}, .dword0 = 1};
    const Step features = {kPowerState, {}}, log = {kHealthLog, {}},
               id = {kNamespaceId, {.result = 2}};
    const NvmeRequest name_space = {6, 2, 0, 4096};
    const char no_identity[] = "nvme|||||0|0|0|0|4096", no_power[] = "nvme|-1|0";
    const char no_discard[] = "nvme|0|0|0|0|0|0|0|undefined",
               ioctl[] = "ioctl: Permission denied\n";
    const struct {
        std::vector<Step> script;
        std::string (StorageTest::*call)();
        const char* sent;
        const char* message;  // start of standard error; "": it is empty
    } cases[] = {
        {{{kIdentifyController, refused}}, &NvmeInfoTest::Info, no_identity, ioctl},
        {{{kIdentifyController, status}}, &NvmeInfoTest::Info, no_identity, ""},
        {{{kHealthLog, refused}}, &NvmeInfoTest::Health, kUnavailable, ioctl},
        {{{kHealthLog, status}}, &NvmeInfoTest::Health, kUnavailable, "ioctl: "},
        {{{kPowerState, refused}}, &NvmeInfoTest::Power, no_power, ioctl},
        {{{kPowerState, status}}, &NvmeInfoTest::Power, no_power, "ioctl: "},
        {{features, {kIdentifyController, refused}}, &NvmeInfoTest::Power, no_power, ioctl},
        {{features, {kIdentifyController, status}}, &NvmeInfoTest::Power, no_power, "ioctl: "},
        {{log, {kNamespaceId, refused}},
         &NvmeInfoTest::Health,
         no_discard,
         "ioctl(NVME_IOCTL_ID): Permission denied\n"},
        {{log, id, {name_space, refused}}, &NvmeInfoTest::Health, no_discard, ioctl},
        {{log, id, {name_space, status}}, &NvmeInfoTest::Health, no_discard, ""}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "row " << &c - cases);
        for (const auto& [request, reply] : c.script) driver_.Expect(request, reply);
        if (c.sent == no_identity) driver_.ExpectSize(4096);
        std::string sent;
        const std::string error = Printed([&] { sent = (this->*c.call)(); });
        EXPECT_EQ(sent, c.sent);
        EXPECT_THAT(error, testing::StartsWith(c.message));
        EXPECT_EQ(std::ranges::count(error, '\n'), *c.message == '\0' ? 0 : 1);
    }
    EXPECT_THAT(log_.Take(), ElementsAre());
}

TEST_F(NvmeInfoTest, NodeThatCannotBeOpenedGivesEmptyResults) {
    ClearPrivateRoot();
    EXPECT_EQ(Printed([&] {
                  EXPECT_TRUE(nvme_.DumpInfo());
                  EXPECT_FALSE(nvme_.DumpHealthInfo());
                  nvme_.GetPowerInfo();
                  EXPECT_EQ(nvme_.GetDiscardReadValue(), "undefined");
              }),
              "Type: \nSerial Number: \nModel Number: \nFirmware Revision: \n"
              "NVMe version: 0.0.0 [0x0]\nFFU support: false\nSize: 0 (0.0 GB)\n"
              "Failed to get NVMe health info\nFailed to get complete NVMe power info\n"
              "open: No such file or directory\nopen: No such file or directory\n"
              "open: No such file or directory\nopen: No such file or directory\n");
    EXPECT_EQ(log_.Take().size(), 1U);  // of GetSize
}

}  // namespace
