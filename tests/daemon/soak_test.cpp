// Many calls of all four methods: the answers stay the same, the daemon's resources stay as they
// were after a tenth of the calls, and its records stay within their limit. SOAK_CALLS sets the
// number of calls.
#include <daemon.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <optional>
#include <string>

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

TEST_F(SoakTest, AnswersResourcesAndRecordsStayWithinTheirBounds) {
    const char* const calls = getenv("SOAK_CALLS");
    const long rounds = (calls != nullptr ? atol(calls) : 40'000) / 4;
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

    const auto records = std::ranges::count(daemon.err(), '\n');
    const auto elapsed = std::chrono::steady_clock::now() - start;
    EXPECT_GE(records, 48);
    EXPECT_LE(records, 50 * (elapsed / std::chrono::seconds(30) + 1));
}

}  // namespace
