// Prints the wear and the media errors of the built-in disk.
#include <binder/service_manager.h>
#include <morsk/BpDiskInfoService.h>

#include <cstdio>

using namespace morsk::com::quendar::tavisk::disk_info;

int main() {
    const std::string instance = std::string(IDiskInfoService::descriptor) + "/default";
    binder::StrongBinder binder(AServiceManager_checkService(instance.c_str()));
    if (!binder) {
        std::perror("cannot connect to the disk info service");
        return 1;
    }
    const auto service = binder::SharedRefBase::make<BpDiskInfoService>(std::move(binder));

    std::optional<DiskHealthParcel> health;
    const binder::ScopedStatus status = service->getDiskHealth(&health);
    if (!status.isOk() || !health) {
        std::fprintf(stderr, "getDiskHealth: exception %d, service error %d, transport status %d\n",
                     AStatus_getExceptionCode(status.get()),
                     AStatus_getServiceSpecificError(status.get()),
                     AStatus_getStatus(status.get()));
        return 1;
    }
    if (const NvmeHealthInfoParcel* nvme = health->nvme()) {
        std::printf("NVMe: %d %% of the expected life used, %llu media errors\n",
                    nvme->percentageUsed,
                    static_cast<unsigned long long>(nvme->numberOfMediaErrors));
    } else if (const UfsHealthInfoParcel* ufs = health->ufs()) {
        std::printf("UFS: life time estimation A %s, B %s\n",
                    ufs->deviceLifeTimeEstimationA.c_str(), ufs->deviceLifeTimeEstimationB.c_str());
    }
}
