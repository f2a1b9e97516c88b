# zorv_libevent: libevent's core library.
add_library(zorv_libevent INTERFACE)
pkg_check_modules(LIBEVENT IMPORTED_TARGET libevent_core>=2.1)
if(LIBEVENT_FOUND)
    target_link_libraries(zorv_libevent INTERFACE PkgConfig::LIBEVENT)
elseif(CMAKE_CROSSCOMPILING)
    # Debian has its headers for one architecture at a time; the runtime library will do beside them.
    find_library(LIBEVENT_LIBRARY NAMES libevent_core-2.1.so.7 REQUIRED)
    target_link_libraries(zorv_libevent INTERFACE ${LIBEVENT_LIBRARY})
else()
    message(FATAL_ERROR "libevent_core 2.1 is needed")
endif()
