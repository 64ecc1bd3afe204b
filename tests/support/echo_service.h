// A service with the methods that tests of the transport need, and a client of it.
#pragma once

#include <binder/interface_utils.h>
#include <binder/process.h>
#include <binder/service_manager.h>
#include <child.h>
#include <gtest/gtest.h>
#include <raw_socket.h>
#include <unistd.h>

#include <string>

using namespace std::string_literals;

inline constexpr char kInstance[] = "test.IService/default";
inline constexpr char kPath[] = "/run/binder/test.IService/default";

// Code 1 returns twice the number; 2 ends the process; 3 writes a text of so many bytes; 4 fails
// after it wrote a number.
inline binder_status_t OnTransact(AIBinder*, transaction_code_t code, const AParcel* request,
                                  AParcel* reply) {
    int32_t number = 0;
    if (const auto status = AParcel_readInt32(request, &number)) return status;
    if (code == 1) return AParcel_writeInt32(reply, number * 2);
    if (code == 2) _exit(0);
    if (code == 3) {
        const std::string text(static_cast<size_t>(number), 'x');
        return AParcel_writeString(reply, text.data(), number);
    }
    if (code == 4) (void)AParcel_writeInt32(reply, number);
    return STATUS_UNKNOWN_TRANSACTION;
}

inline binder_status_t Register() {
    static AIBinder_Class* const clazz = AIBinder_Class_define(
        "test.IService", [](void*) -> void* { return nullptr; }, [](void*) {}, OnTransact);
    const binder::StrongBinder binder(AIBinder_new(clazz, nullptr));
    return AServiceManager_registerLazyService(binder.get(), kInstance);
}

// The body of a child. If the registration fails, the exit status is the negated status.
inline void Serve() {
    if (const binder_status_t status = Register()) _exit(-status);
    ABinderProcess_joinThreadPool();
}

inline binder::StrongBinder Connect(const char* instance = kInstance) {
    binder::StrongBinder binder;
    EXPECT_TRUE(Eventually([&] {
        binder = binder::StrongBinder(AServiceManager_checkService(instance));
        return bool{binder};
    }));
    return binder;
}

inline binder_status_t Call(const binder::StrongBinder& binder, transaction_code_t code,
                            int32_t* number) {
    binder::ScopedParcel request, reply;
    if (auto status = AIBinder_prepareTransaction(binder.get(), request.slot())) return status;
    EXPECT_EQ(AParcel_writeInt32(request.get(), *number), STATUS_OK);
    const auto status = AIBinder_transact(binder.get(), code, request.slot(), reply.slot(), 0);
    EXPECT_FALSE(request);
    EXPECT_EQ(bool{reply}, status == STATUS_OK);
    return status == STATUS_OK ? AParcel_readInt32(reply.get(), number) : status;
}

inline void ExpectAnswered(const binder::StrongBinder& binder) {
    int32_t number = 21;
    EXPECT_EQ(Call(binder, 1, &number), STATUS_OK);
    EXPECT_EQ(number, 42);
}

// A request for twice 21, and its reply.
inline const std::string kRequest = "BirQ\1\0\0\0\4\0\0\0\x15\0\0\0"s;
inline const std::string kReply = "BirP\0\0\0\0\4\0\0\0\x2a\0\0\0"s;
