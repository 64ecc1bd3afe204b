// Dispatch of transactions, and who keeps whom alive.
#include <binder/parcel_utils.h>
#include <gtest/gtest.h>
#include <morsk/BpDiskInfoService.h>
#include <parcel_words.h>
#include <scripted_service.h>

#include <cstdio>
#include <memory>
#include <string>
#include <thread>
#include <vector>

using namespace morsk::com::quendar::tavisk::disk_info;
using binder::ScopedParcel;
using binder::ScopedStatus;
using binder::SharedRefBase;
using binder::StrongBinder;

namespace {

class Dispatch : public testing::Test {
  protected:
    Dispatch() {
        service_->info = NvmeInfoParcel{"NVMe", "m", "s", "f", 1, 4, 0, true, 99};
        service_->health = UfsHealthInfoParcel{"0x01", "0x02", "0x03", 4, "any"};
        service_->power = NvmePowerInfoParcel{5, true};
        service_->filesystem = FilesystemInfoParcel{1, "fn", 5, "/sys"};
    }
    // Sends what `request_` holds; the reply's words go to `reply_`.
    binder_status_t send(transaction_code_t code) {
        EXPECT_EQ(AParcel_setDataPosition(request_.get(), 0), STATUS_OK);
        ScopedParcel reply(AParcel_create());
        const auto status =
            BnDiskInfoService::onTransact(binder_.get(), code, request_.get(), reply.get());
        reply_ = WordsOf(reply.get());
        return status;
    }

    std::shared_ptr<ScriptedService> service_ = SharedRefBase::make<ScriptedService>();
    StrongBinder binder_ = service_->asBinder();
    ScopedParcel request_{AParcel_create()};
    std::vector<int32_t> reply_;
};

TEST_F(Dispatch, EachCodeCallsItsMethod) {
    ASSERT_EQ(AParcel_writeString(request_.get(), "userdata", 8), STATUS_OK);
    const struct {
        transaction_code_t code;
        std::vector<int32_t> head;  // status header, presence marker and what follows
        size_t words;
    } cases[] = {
        {1, {0, 1, 0, 1, 64, 4, 0x654d564e, 0}, 20},
        {2, {0, 1, 1, 1, 56, 4, 0x31307830, 0}, 18},
        {3, {0, 1, 0, 1, 12, 5, 1}, 7},
        {4, {0, 1, 36, 1, 0, 2, 0x6e66, 5, 4, 0x7379732f, 0}, 11},
        {16777215, {0, 1}, 2},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.code);
        EXPECT_EQ(send(c.code), STATUS_OK);
        ASSERT_EQ(reply_.size(), c.words);
        reply_.resize(c.head.size());
        EXPECT_EQ(reply_, c.head);
    }
    EXPECT_EQ(service_->calls, 4);
    EXPECT_EQ(service_->partition, "userdata");
}

TEST_F(Dispatch, AFailedMethodSendsItsStatusAlone) {
    ASSERT_EQ(AParcel_writeString(request_.get(), "userdata", 8), STATUS_OK);
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
            EXPECT_EQ(send(code), STATUS_OK);
            EXPECT_EQ(reply_, words);
        }
    }
}

TEST_F(Dispatch, RequestsThatCannotBeReadCallNothing) {
    EXPECT_EQ(send(4), STATUS_NOT_ENOUGH_DATA);
    ASSERT_EQ(AParcel_writeString(request_.get(), nullptr, -1), STATUS_OK);
    EXPECT_EQ(send(4), STATUS_UNEXPECTED_NULL);
    EXPECT_EQ(send(5), STATUS_UNKNOWN_TRANSACTION);
    EXPECT_TRUE(reply_.empty());
    EXPECT_EQ(service_->calls, 0);
}

TEST_F(Dispatch, TheHashIsThatOfTheDefinitionText) {
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

TEST_F(Dispatch, DumpAndShellCommandReachTheServiceAndSayNothing) {
    EXPECT_EQ(AIBinder_dump(binder_.get(), -1, nullptr, 0), STATUS_OK);
    EXPECT_EQ(AIBinder_runShellCommand(binder_.get(), -1, -1, -1, nullptr, 0), STATUS_OK);
    EXPECT_EQ(binder::ICInterfaceData::onDump(nullptr, -1, nullptr, 0), -32);
    EXPECT_EQ(binder::ICInterfaceData::handleShellCommand(nullptr, -1, -1, -1, nullptr, 0), -32);
}

TEST(Lifecycle, TheBinderKeepsTheServiceAndIsReplacedWhenGone) {
    auto service = SharedRefBase::make<ScriptedService>();
    std::weak_ptr<ScriptedService> watch = service;
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
    for (StrongBinder& mine : binders) {
        threads.emplace_back([&] { mine = service->asBinder(); });
    }
    for (std::thread& thread : threads) thread.join();
    for (const StrongBinder& one : binders) EXPECT_EQ(one.get(), binders[0].get());
}

TEST(LifecycleDeathTest, FaultsOfOwnershipAreFatal) {
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
