// The daemon's system call filter for the bare server.
#include <service/confinement.h>

extern "C" int Confine() {
    return morsk::com::quendar::tavisk::disk_info::ConfineProcess() ? 1 : 0;
}
