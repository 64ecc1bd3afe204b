// Server side of IDiskInfoService: dispatches transactions to the four methods, which a subclass
// implements, and answers the two meta transactions with the constants of the interface.
#pragma once

#include <morsk/IDiskInfoService.h>

namespace morsk::com::quendar::tavisk::disk_info {

class BnDiskInfoService : public binder::BnCInterface<IDiskInfoService> {
  public:
    binder::ScopedStatus getInterfaceVersion(int32_t* result) override;
    binder::ScopedStatus getInterfaceHash(std::string* result) override;

    // Transaction function of the binder class. Returns the transport status. If a method fails,
    // its status is in the status header of the reply and the result is STATUS_OK.
    static binder_status_t onTransact(AIBinder* binder, transaction_code_t code,
                                      const AParcel* request, AParcel* reply);

  protected:
    binder::StrongBinder createBinder() override;
};

}  // namespace morsk::com::quendar::tavisk::disk_info
