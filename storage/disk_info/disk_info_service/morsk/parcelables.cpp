#include <logging/logging.h>
#include <morsk/DiskParcelables.h>
#include <morsk/FilesystemInfoParcel.h>
#include <morsk/framing.h>

namespace morsk::com::quendar::tavisk::disk_info {

binder_status_t NvmeInfoParcel::writeToParcel(AParcel* parcel) const {
    return writeFramed(parcel, *this);
}
binder_status_t NvmeInfoParcel::readFromParcel(const AParcel* parcel) {
    return readFramed(parcel, this);
}
binder_status_t NvmeHealthInfoParcel::writeToParcel(AParcel* parcel) const {
    return writeFramed(parcel, *this);
}
binder_status_t NvmeHealthInfoParcel::readFromParcel(const AParcel* parcel) {
    return readFramed(parcel, this);
}
binder_status_t NvmePowerInfoParcel::writeToParcel(AParcel* parcel) const {
    return writeFramed(parcel, *this);
}
binder_status_t NvmePowerInfoParcel::readFromParcel(const AParcel* parcel) {
    return readFramed(parcel, this);
}
binder_status_t UfsInfoParcel::writeToParcel(AParcel* parcel) const {
    return writeFramed(parcel, *this);
}
binder_status_t UfsInfoParcel::readFromParcel(const AParcel* parcel) {
    return readFramed(parcel, this);
}
binder_status_t UfsHealthInfoParcel::writeToParcel(AParcel* parcel) const {
    return writeFramed(parcel, *this);
}
binder_status_t UfsHealthInfoParcel::readFromParcel(const AParcel* parcel) {
    return readFramed(parcel, this);
}
binder_status_t UfsPowerInfoParcel::writeToParcel(AParcel* parcel) const {
    return writeFramed(parcel, *this);
}
binder_status_t UfsPowerInfoParcel::readFromParcel(const AParcel* parcel) {
    return readFramed(parcel, this);
}
binder_status_t FilesystemInfoParcel::writeToParcel(AParcel* parcel) const {
    return writeFramed(parcel, *this);
}
binder_status_t FilesystemInfoParcel::readFromParcel(const AParcel* parcel) {
    return readFramed(parcel, this);
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

template <typename Arm, typename Union>
static binder_status_t readArm(const AParcel* parcel, Union* result) {
    Arm arm;
    if (binder_status_t status = arm.readFromParcel(parcel)) return status;
    *result = Union(std::move(arm));
    return STATUS_OK;
}

template <typename Nvme, typename Ufs>
binder_status_t DiskUnion<Nvme, Ufs>::readFromParcel(const AParcel* parcel) {
    int32_t tag = 0;
    int32_t present = 0;
    if (binder_status_t status = AParcel_readInt32(parcel, &tag)) return status;
    if (tag != static_cast<int32_t>(Tag::nvme) && tag != static_cast<int32_t>(Tag::ufs)) {
        return STATUS_BAD_VALUE;
    }
    if (binder_status_t status = AParcel_readInt32(parcel, &present)) return status;
    if (present == 0) return STATUS_UNEXPECTED_NULL;
    if (present != 1) return STATUS_BAD_VALUE;
    return tag == static_cast<int32_t>(Tag::nvme) ? readArm<Nvme>(parcel, this)
                                                  : readArm<Ufs>(parcel, this);
}

template class DiskUnion<NvmeInfoParcel, UfsInfoParcel>;
template class DiskUnion<NvmeHealthInfoParcel, UfsHealthInfoParcel>;
template class DiskUnion<NvmePowerInfoParcel, UfsPowerInfoParcel>;

}  // namespace morsk::com::quendar::tavisk::disk_info
