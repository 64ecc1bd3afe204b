// Services in place of the daemon: one with a later interface version, and one with malformed
// replies.
#pragma once

#include <binder/parcel_utils.h>
#include <binder/process.h>
#include <daemon.h>
#include <scripted_service.h>

using namespace morsk::com::quendar::tavisk::disk_info;

// A later interface version: another hash, and an unknown kind of disk in the power call.
inline binder_status_t ServeLater(AIBinder* /*binder*/, transaction_code_t code,
                                  const AParcel* request, AParcel* reply) {
    if (code != Service::kGetInterfaceHash && code != Service::kGetDiskPower) {
        const auto known = binder::SharedRefBase::make<ScriptedService>();
        known->info = NvmeInfoParcel{"NVMe", "\"}\\\n\xff\x1b", "", "", 0, 0, 0, false, 5};
        known->health = NvmeHealthInfoParcel{9, 10, 0, 0, -1, 0, 0, "0"};
        return BnDiskInfoService::onTransact(known->asBinder().get(), code, request, reply);
    }
    (void)AParcel_writeInt32(reply, EX_NONE);
    if (code == Service::kGetInterfaceHash) return AParcel_writeData(reply, std::string("later"));
    (void)AParcel_writeInt32(reply, 1);
    return AParcel_writeInt32(reply, 2);  // the tag of the unknown kind
}

inline binder_status_t ServeMalformed(AIBinder*, transaction_code_t, const AParcel*,
                                      AParcel* reply) {
    return AParcel_writeInt64(reply, 0x700000000);
}

// A process that serves transactions with `serve`.
class OtherService : public Child {
  public:
    explicit OtherService(AIBinder_Class_onTransact serve)
        : Child([serve] {
              AIBinder_Class* const clazz = AIBinder_Class_define(
                  "other", [](void* data) { return data; }, [](void* /*data*/) {}, serve);
              (void)AServiceManager_registerLazyService(AIBinder_new(clazz, nullptr), kInstance);
              ABinderProcess_joinThreadPool();
          }) {
        AwaitService();
    }
};
