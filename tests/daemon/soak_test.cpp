// Many calls of all four kinds: every answer is the first one's, the daemon holds in the end what
// it held after a tenth of them, and its records stay within their limit. SOAK_CALLS says how many;
// the default is for every day.
#include <daemon.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

using namespace morsk::com::quendar::tavisk::disk_info;

namespace {

using SoakTest = PrivateRootTest;

struct Answers {
    explicit Answers(Service& service) {
        EXPECT_TRUE(service.getDiskInfo(&info).isOk());
        EXPECT_TRUE(service.getDiskHealth(&health).isOk());
        EXPECT_TRUE(service.getDiskPower(&power).isOk());
        EXPECT_TRUE(service.getFilesystemInfo("userdata", &filesystem).isOk());
    }
    bool operator==(const Answers&) const = default;

    std::optional<DiskInfoParcel> info;
    std::optional<DiskHealthParcel> health;
    std::optional<DiskPowerParcel> power;
    std::optional<FilesystemInfoParcel> filesystem;
};

TEST_F(SoakTest, MemoryDescriptorsAndRecordsStayWithinTheirBounds) {
    const char* const wanted = getenv("SOAK_CALLS");
    const long rounds = (wanted != nullptr ? atol(wanted) : 40'000) / 4;
    ASSERT_GE(rounds, 100);
    PlaceDevice();
    const auto start = std::chrono::steady_clock::now();
    const Daemon daemon{SERVICE_PROGRAM};
    const auto service = ConnectToService();
    const Answers first(*service);
    std::optional<Vitals> before;
    for (long round = 1; round < rounds; ++round) {
        ASSERT_EQ(Answers(*service), first) << round;
        if (round == rounds / 10) before.emplace(daemon.pid());
    }
    const Vitals after(daemon.pid());
    EXPECT_EQ(after.descriptors, 6);  // standard streams, socket, epoll, this connection
    EXPECT_EQ(after.threads, 1);
    EXPECT_LE(after.memory_kib, before->memory_kib + 64);
    std::cout << 4 * rounds << " calls, " << before->memory_kib << " KiB after a tenth of them, "
              << after.memory_kib << " KiB at the end\n";

    const auto took = std::chrono::steady_clock::now() - start;
    const std::string records = daemon.err();
    EXPECT_GE(std::ranges::count(records, '\n'), 48);
    EXPECT_LE(std::ranges::count(records, '\n'), 50 * (took / std::chrono::seconds(30) + 1));
}

}  // namespace
