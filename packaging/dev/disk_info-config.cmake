# Defines disk_info::client, the client library of the disk information service.
include(CMakeFindDependencyMacro)
find_dependency(Threads)
include(${CMAKE_CURRENT_LIST_DIR}/disk_info-targets.cmake)
