#include <binder/process.h>
#include <binder/service_manager.h>
#include <disk_info/diagnostics.h>
#include <logging/logging.h>
#include <service/DiskInfoService.h>
#include <service/confinement.h>
#include <service/record_limit.h>
#include <service/standard_streams.h>

#include <chrono>
#include <cstdlib>
#include <ctime>

using binder::SharedRefBase;
using morsk::com::quendar::tavisk::disk_info::ConfineProcess;
using morsk::com::quendar::tavisk::disk_info::DiskInfoService;
using morsk::com::quendar::tavisk::disk_info::RecordLimit;

// Replaces the C++ library's terminate handler, which runs when memory is exhausted. The library's
// version prints the name of the exception and adds 57 kB of demangling code.
namespace __gnu_cxx {
void __verbose_terminate_handler() {
    std::abort();
}
}  // namespace __gnu_cxx

namespace {

RecordLimit findings;  // INFO records and below; a healthy UFS disk causes them on each call
RecordLimit failures;  // other records and diagnostics; findings cannot exhaust it

bool Admit(RecordLimit* limit) {
    if (findings.IsReporting() || failures.IsReporting()) return true;
    timespec now;
    (void)clock_gettime(CLOCK_MONOTONIC_COARSE, &now);  // needs no system call
    return limit->Admit(std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec));
}

// FATAL records are exempt from the limit.
void InitLimitedLogging(char** argv) {
    const logging::LogdLogger logger(logging::MAIN);
    logging::InitLogging(
        argv,
        [logger](logging::LogId id, logging::LogSeverity severity, auto... record) {
            RecordLimit* const limit = severity <= logging::INFO ? &findings : &failures;
            if (severity == logging::FATAL || Admit(limit)) logger(id, severity, record...);
        },
        logging::DefaultAborter);
    ::orvane::tavisk::disk_info::LimitDiagnostics([] { return Admit(&failures); });
    (void)std::atexit([] {
        findings.ReportSuppressed();
        failures.ReportSuppressed();
    });
}

}  // namespace

// Returns only after a failure, always 1: the registration failed, the filter was not installed, or
// ABinderProcess_joinThreadPool returned. A service with a socket from systemd exits inside that
// function when it has had no client for 10 seconds.
int main(int /*argc*/, char** argv) {
    morsk::com::quendar::tavisk::disk_info::PrepareStandardStreams();
    InitLimitedLogging(argv);
    logging::SetDefaultTag("DiskInfoService");
    (void)ABinderProcess_setThreadPoolMaxThreadCount(1);

    const auto service = SharedRefBase::make<DiskInfoService>();
    const std::string instance = std::string(DiskInfoService::descriptor) + "/default";
    // The reference is released at once; the registration keeps the binder alive.
    const binder_status_t status =
        AServiceManager_registerLazyService(service->asBinder().get(), instance.c_str());
    if (status != STATUS_OK) {
        LOG(ERROR) << "Failed to register lazy service: " << status;
    } else if (!ConfineProcess()) {
        PLOG(ERROR) << "Failed to install the system call filter";
    } else {
        ABinderProcess_joinThreadPool();
    }
    return 1;
}
