// Dispatch of transactions by the stub, transport statuses of the proxy, and lifetime of the
// objects.
#include <binder/parcel_utils.h>
#include <gtest/gtest.h>
#include <morsk/BpDiskInfoService.h>
#include <parcel_words.h>
#include <scripted_service.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

using namespace morsk::com::quendar::tavisk::disk_info;
using binder::ICInterfaceData;
using binder::ScopedParcel;
using binder::ScopedStatus;
using binder::SharedRefBase;
using binder::StrongBinder;

namespace {

// Records the arguments of both hooks.
class HookedService : public ScriptedService {
  public:
    binder_status_t dump(int fd, const char** args, uint32_t num_args) override {
        hooks.push_back({fd, *args[0], static_cast<int>(num_args)});
        return 71;
    }
    binder_status_t handleShellCommand(int in, int out, int err, const char** argv,
                                       uint32_t argc) override {
        hooks.push_back({in, out, err, *argv[0], static_cast<int>(argc)});
        return 72;
    }
    std::vector<std::vector<int>> hooks;
};

class Dispatch : public testing::Test {
  protected:
    Dispatch() {
        service_->info = NvmeInfoParcel{"NVMe", "m", "s", "f", 1, 4, 0, true, 99};
        service_->health = UfsHealthInfoParcel{"0x01", "0x02", "0x03", 4, "any"};
        service_->power = NvmePowerInfoParcel{5, true};
        service_->filesystem = FilesystemInfoParcel{1, "fn", 5, "/sys"};
    }
    // Sends a request that holds `partition`; stores the words of the reply in `reply_`.
    binder_status_t Send(transaction_code_t code, const char* partition = "userdata") {
        ScopedParcel request(AParcel_create()), reply(AParcel_create());
        const int32_t length = partition == nullptr ? -1 : static_cast<int32_t>(strlen(partition));
        EXPECT_EQ(AParcel_writeString(request.get(), partition, length), STATUS_OK);
        EXPECT_EQ(AParcel_setDataPosition(request.get(), 0), STATUS_OK);
        const auto status =
            BnDiskInfoService::onTransact(binder_.get(), code, request.get(), reply.get());
        reply_ = WordsOf(reply.get());
        return status;
    }

    std::shared_ptr<HookedService> service_ = SharedRefBase::make<HookedService>();
    StrongBinder binder_ = service_->asBinder();
    std::vector<int32_t> reply_;
};

TEST_F(Dispatch, EachCodeCallsItsMethod) {
    const struct {
        transaction_code_t code;
        std::vector<int32_t> head;  // status header, presence marker and what follows
        size_t words;
    } cases[] = {{1, {0, 1, 0, 1, 64, 4, 0x654d564e, 0}, 20},
                 {2, {0, 1, 1, 1, 56, 4, 0x31307830, 0}, 18},
                 {3, {0, 1, 0, 1, 12, 5, 1}, 7},
                 {4, {0, 1, 36, 1, 0, 2, 0x6e66, 5, 4, 0x7379732f, 0}, 11},
                 {16777215, {0, 1}, 2}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.code);
        EXPECT_EQ(Send(c.code), STATUS_OK);
        ASSERT_EQ(reply_.size(), c.words);
        reply_.resize(c.head.size());
        EXPECT_EQ(reply_, c.head);
    }
    EXPECT_EQ(service_->calls, 4);
    EXPECT_EQ(service_->partition, "userdata");
}

TEST_F(Dispatch, FailedMethodSendsItsStatusAlone) {
    const std::pair<binder_exception_t, std::vector<int32_t>> cases[] = {
        {EX_SERVICE_SPECIFIC, {EX_SERVICE_SPECIFIC, -1}}, {-3, {-3}}, {EX_NONE, {0, 0}}};
    service_->info.reset();
    service_->health.reset();
    service_->power.reset();
    service_->filesystem.reset();
    for (const transaction_code_t code : {1U, 2U, 3U, 4U}) {
        for (const auto& [exception, words] : cases) {
            SCOPED_TRACE(testing::Message() << code << " " << exception);
            service_->exception = exception;
            EXPECT_EQ(Send(code), STATUS_OK);
            EXPECT_EQ(reply_, words);
        }
    }
}

TEST_F(Dispatch, RequestsThatCannotBeServedCallNothing) {
    ScopedParcel empty(AParcel_create());
    EXPECT_EQ(BnDiskInfoService::onTransact(binder_.get(), 4, empty.get(), nullptr),
              STATUS_NOT_ENOUGH_DATA);
    EXPECT_EQ(Send(4, nullptr), STATUS_UNEXPECTED_NULL);
    EXPECT_TRUE(reply_.empty());
    for (const transaction_code_t code : {0U, 5U}) EXPECT_EQ(Send(code), -74);
    EXPECT_TRUE(reply_.empty());
    binder_ = StrongBinder();
    EXPECT_EQ(Send(1), -32);
    EXPECT_EQ(service_->calls, 0);
}

TEST_F(Dispatch, ProxyReportsCallsThatDoNotReachTheService) {
    const auto transport_status = [](StrongBinder binder, const std::string& partition) {
        std::optional<FilesystemInfoParcel> result;
        const auto proxy = SharedRefBase::make<BpDiskInfoService>(std::move(binder));
        const ScopedStatus status = proxy->getFilesystemInfo(partition, &result);
        EXPECT_EQ(AStatus_getExceptionCode(status.get()), EX_TRANSACTION_FAILED);
        return AStatus_getStatus(status.get());
    };
    EXPECT_EQ(transport_status(StrongBinder(), "userdata"), STATUS_UNEXPECTED_NULL);
    EXPECT_EQ(transport_status(std::move(binder_), std::string(65536, 'x')), STATUS_NO_MEMORY);
    EXPECT_EQ(service_->calls, 0);
}

TEST_F(Dispatch, HashIsThatOfTheDefinitionText) {
    std::FILE* sum = popen("sha1sum " DEFINITION_FILE, "r");
    ASSERT_NE(sum, nullptr);
    char digits[41] = "";
    ASSERT_EQ(std::fread(digits, 1, 40, sum), 40U);
    ASSERT_EQ(pclose(sum), 0);
    std::string hash;
    int32_t version = 0;
    const auto proxy = SharedRefBase::make<BpDiskInfoService>(std::move(binder_));
    EXPECT_TRUE(proxy->getInterfaceHash(&hash).isOk());
    EXPECT_EQ(hash, digits);
    EXPECT_TRUE(service_->getInterfaceHash(&hash).isOk());
    EXPECT_EQ(hash, digits);
    EXPECT_TRUE(service_->getInterfaceVersion(&version).isOk());
    EXPECT_EQ(version, 1);
}

TEST_F(Dispatch, DumpAndShellCommandAreForwardedToTheService) {
    const char* arguments[] = {"a"};
    EXPECT_EQ(AIBinder_dump(binder_.get(), 7, arguments, 1), 71);
    EXPECT_EQ(AIBinder_runShellCommand(binder_.get(), 7, 8, 9, arguments, 1), 72);
    EXPECT_EQ(service_->hooks, (std::vector<std::vector<int>>{{7, 'a', 1}, {7, 8, 9, 'a', 1}}));
    const auto silent = SharedRefBase::make<ScriptedService>();
    EXPECT_EQ(AIBinder_dump(silent->asBinder().get(), -1, nullptr, 0), STATUS_OK);
    EXPECT_EQ(ICInterfaceData::onDump(nullptr, -1, nullptr, 0), -32);
    EXPECT_EQ(ICInterfaceData::handleShellCommand(nullptr, -1, -1, -1, nullptr, 0), -32);
}

TEST(Lifecycle, BinderKeepsTheServiceAndIsReplacedWhenGone) {
    auto service = SharedRefBase::make<ScriptedService>();
    const std::weak_ptr<ScriptedService> watch = service;
    StrongBinder first = service->asBinder();
    EXPECT_EQ(service->asBinder().get(), first.get());
    first = StrongBinder();
    StrongBinder second = service->asBinder();
    ASSERT_TRUE(second);
    service.reset();
    EXPECT_FALSE(watch.expired());
    EXPECT_EQ(AIBinder_dump(second.get(), -1, nullptr, 0), STATUS_OK);
    second = StrongBinder();
    EXPECT_TRUE(watch.expired());
}

TEST(Lifecycle, ConcurrentFirstCallsGetOneBinder) {
    const auto service = SharedRefBase::make<ScriptedService>();
    std::vector<StrongBinder> binders(8);
    std::vector<std::thread> threads;
    for (StrongBinder& mine : binders) threads.emplace_back([&] { mine = service->asBinder(); });
    for (std::thread& thread : threads) thread.join();
    for (const StrongBinder& one : binders) EXPECT_EQ(one.get(), binders[0].get());
}

TEST(LifecycleDeathTest, OwnershipFaultsAreFatal) {
    EXPECT_DEATH({ ScriptedService never_owned; }, "without ever having had a shared owner");
    EXPECT_DEATH(
        {
            auto owner = SharedRefBase::make<ScriptedService>();
            std::shared_ptr<ScriptedService> second(owner.get());
            second.reset();
        },
        "second, independent owner");
}

}  // namespace
