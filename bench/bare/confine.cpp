// Installs the daemon's system call filter in the floor.
#include <service/confinement.h>

extern "C" int Confine() {
    return morsk::com::quendar::tavisk::disk_info::ConfineProcess() ? 1 : 0;
}
