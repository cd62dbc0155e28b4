# find_package(tovutil): the targets tovutil::tovutil, and tovutil::hvd for programs that control the trace
# facility themselves (services/hvdctl.h).
include(${CMAKE_CURRENT_LIST_DIR}/tovutil-targets.cmake)
