#include <binder/parcel_utils.h>
#include <logging/logging.h>
#include <morsk/DiskParcelables.h>
#include <morsk/FilesystemInfoParcel.h>

namespace morsk::com::quendar::tavisk::disk_info {

template <typename Parcelable>
binder_status_t writeFramed(AParcel* parcel, const Parcelable& value) {
    const int32_t start = AParcel_getDataPosition(parcel);
    binder_status_t status = AParcel_writeInt32(parcel, 0);
    forEachField<Parcelable>([&](const auto& field) {
        if (status == STATUS_OK) status = AParcel_writeData(parcel, value.*field.member);
    });
    if (status != STATUS_OK) return status;
    const int32_t end = AParcel_getDataPosition(parcel);
    // Cannot fail: the four bytes exist already.
    AParcel_setDataPosition(parcel, start);
    (void)AParcel_writeInt32(parcel, end - start);
    AParcel_setDataPosition(parcel, end);
    return STATUS_OK;
}

template <typename Nvme, typename Ufs>
binder_status_t DiskUnion<Nvme, Ufs>::writeToParcel(AParcel* parcel) const {
    const Tag tag = getTag();
    if (binder_status_t status = AParcel_writeInt32(parcel, static_cast<int32_t>(tag))) {
        return status;
    }
    if (tag != Tag::nvme && tag != Tag::ufs) {
        LOG(ERROR) << "can't reach here";
        return STATUS_BAD_VALUE;
    }
    if (binder_status_t status = AParcel_writeInt32(parcel, 1)) return status;
    return tag == Tag::nvme ? nvme()->writeToParcel(parcel) : ufs()->writeToParcel(parcel);
}

// All instantiations of the writers: other translation units see only their declarations.
template binder_status_t writeFramed(AParcel*, const NvmeInfoParcel&);
template binder_status_t writeFramed(AParcel*, const NvmeHealthInfoParcel&);
template binder_status_t writeFramed(AParcel*, const NvmePowerInfoParcel&);
template binder_status_t writeFramed(AParcel*, const UfsInfoParcel&);
template binder_status_t writeFramed(AParcel*, const UfsHealthInfoParcel&);
template binder_status_t writeFramed(AParcel*, const UfsPowerInfoParcel&);
template binder_status_t writeFramed(AParcel*, const FilesystemInfoParcel&);
template binder_status_t DiskInfoParcel::writeToParcel(AParcel*) const;
template binder_status_t DiskHealthParcel::writeToParcel(AParcel*) const;
template binder_status_t DiskPowerParcel::writeToParcel(AParcel*) const;

}  // namespace morsk::com::quendar::tavisk::disk_info
