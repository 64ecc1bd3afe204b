// The server side of IDiskInfoService: turns transactions into calls of the four methods, which a
// subclass implements, and answers the two meta transactions from the interface's constants.
#pragma once

#include <morsk/IDiskInfoService.h>

namespace morsk::com::quendar::tavisk::disk_info {

class BnDiskInfoService : public binder::BnCInterface<IDiskInfoService> {
  public:
    binder::ScopedStatus getInterfaceVersion(int32_t* result) override;
    binder::ScopedStatus getInterfaceHash(std::string* result) override;

    // The class's transaction function. The result tells how the transaction went; a method's own
    // failure travels in the reply's status header with STATUS_OK.
    static binder_status_t onTransact(AIBinder* binder, transaction_code_t code,
                                      const AParcel* request, AParcel* reply);

  protected:
    binder::StrongBinder createBinder() override;
};

}  // namespace morsk::com::quendar::tavisk::disk_info
