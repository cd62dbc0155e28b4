# The build date and time that trace records and errors carry. They come from SOURCE_DATE_EPOCH,
# else from the commit, so that two builds of one commit are the same bytes; a tree without git
# takes the time of configuring.
if(NOT DEFINED ENV{SOURCE_DATE_EPOCH})
    execute_process(COMMAND git -C ${PROJECT_SOURCE_DIR} log -1 --format=%ct
                    OUTPUT_VARIABLE tov_commit_time OUTPUT_STRIP_TRAILING_WHITESPACE
                    RESULT_VARIABLE tov_git_failed ERROR_QUIET)
    if(NOT tov_git_failed AND tov_commit_time)
        set(ENV{SOURCE_DATE_EPOCH} ${tov_commit_time})
    endif()
endif()
# A build tree that goes on to another commit is configured anew.
execute_process(COMMAND git -C ${PROJECT_SOURCE_DIR} rev-parse --path-format=absolute --git-path logs/HEAD
                OUTPUT_VARIABLE tov_git_log OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
if(EXISTS "${tov_git_log}")
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${tov_git_log}")
endif()
string(TIMESTAMP TOV_BUILD_DATE "%b %d %Y" UTC)
string(TIMESTAMP TOV_BUILD_TIME "%H:%M:%S" UTC)
# The day is padded with a blank, not with a 0: "Oct  6 2004".
string(REGEX REPLACE "^(...) 0" "\\1  " TOV_BUILD_DATE "${TOV_BUILD_DATE}")
configure_file(${PROJECT_SOURCE_DIR}/cmake/tovbuild.h.in ${PROJECT_BINARY_DIR}/generated/tovbuild.h @ONLY)
