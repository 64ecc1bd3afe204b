// Local objects: references, user data, hooks, and transactions within one process.
#include <binder/interface_utils.h>
#include <binder/parcel_utils.h>
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

using binder::ScopedParcel;
using binder::StrongBinder;
using binder::WeakBinder;

namespace {

// The user data: what a binder does to it.
struct Life {
    std::atomic<int> created{0};
    std::atomic<int> destroyed{0};
};

void* Create(void* argument) {
    static_cast<Life*>(argument)->created++;
    return argument;
}
void Destroy(void* user_data) {
    static_cast<Life*>(user_data)->destroyed++;
}

// Code 1 answers with the request's number plus 1, code 2 fails behind a written reply, code 3
// returns what is no status.
binder_status_t Transact(AIBinder*, transaction_code_t code, const AParcel* request,
                         AParcel* reply) {
    int32_t number = 0;
    if (code == 3) return 5;
    if (const binder_status_t status = AParcel_readInt32(request, &number)) return status;
    if (const binder_status_t status = AParcel_writeInt32(reply, number + 1)) return status;
    return code == 1 ? STATUS_OK : STATUS_UNKNOWN_TRANSACTION;
}

AIBinder_Class* NewClass() {
    static auto& classes = *new std::vector<AIBinder_Class*>;  // As long as the process.
    return classes.emplace_back(AIBinder_Class_define("d", Create, Destroy, Transact));
}

TEST(BinderClass, NeedsDescriptorAndHooks) {
    EXPECT_EQ(AIBinder_Class_define(nullptr, Create, Destroy, Transact), nullptr);
    EXPECT_EQ(AIBinder_Class_define("d", nullptr, Destroy, Transact), nullptr);
    EXPECT_EQ(AIBinder_Class_define("d", Create, nullptr, Transact), nullptr);
    EXPECT_EQ(AIBinder_Class_define("d", Create, Destroy, nullptr), nullptr);
    EXPECT_EQ(AIBinder_new(nullptr, nullptr), nullptr);
}

TEST(BinderClass, NamesCodesFromOneOn) {
    static const char* names[] = {"first", "second"};
    AIBinder_Class* clazz = NewClass();
    EXPECT_EQ(AIBinder_Class_getFunctionName(clazz, 1), nullptr);
    AIBinder_Class_setTransactionCodeToFunctionNameMap(clazz, names, 2);
    EXPECT_EQ(AIBinder_Class_getFunctionName(clazz, 0), nullptr);
    EXPECT_STREQ(AIBinder_Class_getFunctionName(clazz, 1), "first");
    EXPECT_STREQ(AIBinder_Class_getFunctionName(clazz, 2), "second");
    EXPECT_EQ(AIBinder_Class_getFunctionName(clazz, 3), nullptr);
}

TEST(Binder, UserDataLivesAsLongAsTheStrongReferences) {
    Life life;
    AIBinder* object = AIBinder_new(NewClass(), &life);
    ASSERT_NE(object, nullptr);
    EXPECT_EQ(life.created, 1);
    EXPECT_EQ(AIBinder_getUserData(object), &life);
    EXPECT_FALSE(AIBinder_isRemote(object));
    const WeakBinder weak(AIBinder_Weak_new(object));
    AIBinder_incStrong(object);
    AIBinder_decStrong(object);
    EXPECT_EQ(life.destroyed, 0);
    {
        const StrongBinder promoted(AIBinder_Weak_promote(weak.get()));
        EXPECT_EQ(promoted.get(), object);
        AIBinder_decStrong(object);
        EXPECT_EQ(life.destroyed, 0);
    }
    EXPECT_EQ(life.destroyed, 1);
    EXPECT_EQ(AIBinder_Weak_promote(weak.get()), nullptr);
    EXPECT_EQ(life.destroyed, 1);
}

// One thread lets go of the object while others promote and let go of it, too.
TEST(Binder, IsAliveForWhoeverPromotedItAndEndsOnce) {
    const AIBinder_Class* clazz = NewClass();
    for (int round = 0; round < 200; ++round) {
        Life life;
        AIBinder* object = AIBinder_new(clazz, &life);
        std::atomic<int> ready{0};
        std::vector<std::thread> threads;
        for (int i = 0; i < 3; ++i) {
            threads.emplace_back([&ready, &life, weak = WeakBinder(AIBinder_Weak_new(object))] {
                ready++;
                for (int attempt = 0; attempt < 100; ++attempt) {
                    const StrongBinder alive(AIBinder_Weak_promote(weak.get()));
                    if (!alive) break;
                    EXPECT_EQ(life.destroyed, 0);
                }
            });
        }
        while (ready < 3) std::this_thread::yield();
        AIBinder_decStrong(object);
        for (std::thread& thread : threads) thread.join();
        EXPECT_EQ(life.destroyed, 1);
    }
}

TEST(Binder, LocalTransactionsEndInAReplyOrAStatus) {
    const struct {
        transaction_code_t code;
        bool with_number;
        binder_flags_t flags;
        binder_status_t status;
    } cases[] = {
        {1, true, 0, STATUS_OK},
        {1, false, 0, STATUS_NOT_ENOUGH_DATA},
        {1, true, 1, STATUS_BAD_VALUE},
        {2, true, 0, STATUS_UNKNOWN_TRANSACTION},
        {3, true, 0, STATUS_UNKNOWN_ERROR},
    };
    Life life;
    const StrongBinder object(AIBinder_new(NewClass(), &life));
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "code " << c.code << " flags " << c.flags);
        ScopedParcel request;
        ScopedParcel reply;
        *reply.slot() = reinterpret_cast<AParcel*>(1);  // A value that must be overwritten.
        ASSERT_EQ(AIBinder_prepareTransaction(object.get(), request.slot()), STATUS_OK);
        if (c.with_number) {
            ASSERT_EQ(AParcel_writeInt32(request.get(), 41), STATUS_OK);
        }
        EXPECT_EQ(AIBinder_transact(object.get(), c.code, request.slot(), reply.slot(), c.flags),
                  c.status);
        EXPECT_FALSE(request);
        ASSERT_EQ(bool(reply), c.status == STATUS_OK);
        if (!reply) continue;
        int32_t number = 0;
        EXPECT_EQ(AParcel_readInt32(reply.get(), &number), STATUS_OK);
        EXPECT_EQ(number, 42);
    }
}

TEST(Binder, DumpAndShellCommandRunTheHooks) {
    AIBinder_Class* clazz = NewClass();
    Life life;
    const StrongBinder object(AIBinder_new(clazz, &life));
    static std::string seen;
    const char* words[] = {"one", "two"};
    EXPECT_EQ(AIBinder_dump(object.get(), 7, words, 2), STATUS_OK);
    EXPECT_EQ(AIBinder_runShellCommand(object.get(), 1, 2, 3, words, 2), STATUS_OK);
    AIBinder_Class_setOnDump(clazz, [](AIBinder*, int fd, const char** args, uint32_t count) {
        seen = std::to_string(fd) + args[0] + std::to_string(count);
        return binder_status_t{-5};
    });
    AIBinder_Class_setHandleShellCommand(
        clazz, [](AIBinder*, int in, int out, int err, const char** args, uint32_t count) {
            seen = std::to_string(in * 100 + out * 10 + err) + args[1] + std::to_string(count);
            return binder_status_t{-6};
        });
    EXPECT_EQ(AIBinder_dump(object.get(), 7, words, 2), -5);
    EXPECT_EQ(seen, "7one2");
    EXPECT_EQ(AIBinder_runShellCommand(object.get(), 1, 2, 3, words, 2), -6);
    EXPECT_EQ(seen, "123two2");
}

}  // namespace
