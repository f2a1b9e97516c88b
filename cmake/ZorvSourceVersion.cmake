# ZORV_SOURCE_HASH and ZORV_SOURCE_TAG: from git; in a source tarball from the two files beside
# this one, which `git archive` fills in.
set(ZORV_SOURCE_HASH "")
set(ZORV_SOURCE_TAG "")
find_package(Git QUIET)
if(Git_FOUND AND EXISTS ${PROJECT_SOURCE_DIR}/.git)
    set(git ${GIT_EXECUTABLE} -c safe.directory=* -C ${PROJECT_SOURCE_DIR})
    execute_process(COMMAND ${git} rev-parse HEAD
                    OUTPUT_VARIABLE ZORV_SOURCE_HASH OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
    execute_process(COMMAND ${git} describe --tags --abbrev=0
                    OUTPUT_VARIABLE ZORV_SOURCE_TAG OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
    foreach(name IN ITEMS logs/HEAD refs/tags) # a new commit or tag configures anew
        execute_process(COMMAND ${git} rev-parse --path-format=absolute --git-path ${name}
                        OUTPUT_VARIABLE path OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
        if(EXISTS "${path}")
            set_property(DIRECTORY ${PROJECT_SOURCE_DIR} APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${path})
        endif()
    endforeach()
else()
    file(STRINGS ${PROJECT_SOURCE_DIR}/cmake/source-hash ZORV_SOURCE_HASH LIMIT_COUNT 1)
    file(STRINGS ${PROJECT_SOURCE_DIR}/cmake/source-tag ZORV_SOURCE_TAG LIMIT_COUNT 1)
endif()
if(NOT ZORV_SOURCE_HASH MATCHES "^[0-9a-f]+$")
    set(ZORV_SOURCE_HASH 0000000000000000000000000000000000000000)
endif()
if(NOT ZORV_SOURCE_TAG OR ZORV_SOURCE_TAG MATCHES "Format")
    set(ZORV_SOURCE_TAG unreleased)
endif()
