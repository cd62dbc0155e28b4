# The memory modules in builds that differ from the library's own: with checks of the heap, under Valgrind, and
# with 32-bit pointers; and the library as it is unloaded.

# With checks. Only the sources concerned are compiled anew; all else comes from the library's objects.
add_library(tovutil_archive STATIC $<TARGET_OBJECTS:tovutil_objects>)
target_include_directories(tovutil_archive PUBLIC ${PROJECT_SOURCE_DIR})
target_link_libraries(tovutil_archive PUBLIC hvd zpt Threads::Threads ${CMAKE_DL_LIBS})

function(tov_checked_executable target)
    add_executable(${target} ${ARGN} ../tovutil/tovfheap.cpp ../tovutil/tovmemst.cpp)
    target_compile_definitions(${target} PRIVATE TOV_HEAP_CHECKS)
    target_link_libraries(${target} PRIVATE tov_test_support tovutil_archive)
endfunction()

tov_checked_executable(test_heapchecks tovutil/tovfheap_test.cpp tovutil/tovmemst_test.cpp
                                       support/failalloc.cpp support/main.cpp)
target_link_options(test_heapchecks PRIVATE -Wl,--wrap=malloc,--wrap=realloc,--wrap=free)
# Left out: what counts the allocations of a heap, for the checks allocate, too.
add_test(NAME memory/checks COMMAND test_heapchecks --gtest_filter=-OutOfMemory*:FastHeapEnd.Waits*)

# Under Valgrind, which can't read clang's debug information: the heap with checks shows it every object; a heap
# that is off is seen through as it is.
find_program(TOV_VALGRIND valgrind)
if(TOV_VALGRIND AND NOT TOV_SANITIZE AND CMAKE_CXX_COMPILER_ID STREQUAL GNU)
    set(memcheck ${TOV_VALGRIND} --quiet --error-exitcode=99 --leak-check=full
                 --soname-synonyms=somalloc=nouserintercepts) # our own operator new counts
    # Left out: sizes near the limit, which are errors to it, and what is slow.
    add_test(NAME memory/valgrind
             COMMAND ${memcheck} $<TARGET_FILE:test_heapchecks>
                     --gtest_filter=-*Refuses*:*NeedsNoCallStack*:*FastHeapOff*:*FastHeapMode*:OutOfMemory*:FastHeapEnd.Waits*)

    tov_checked_executable(test_heapmisuse_checked tovutil/heapmisuse.cpp)
    add_executable(test_heapmisuse tovutil/heapmisuse.cpp)
    target_link_libraries(test_heapmisuse PRIVATE tov_test_support tovutil_objects)
    function(tov_misuse_test name found program)
        add_test(NAME memory/valgrind/${name} COMMAND ${memcheck} $<TARGET_FILE:${program}> ${ARGN})
        set_tests_properties(memory/valgrind/${name} PROPERTIES PASS_REGULAR_EXPRESSION "${found}")
    endfunction()
    tov_misuse_test(use-after-free "Invalid read of size 1" test_heapmisuse_checked use-after-free)
    tov_misuse_test(overrun "Invalid write of size 1" test_heapmisuse_checked overrun)
    tov_misuse_test(underrun "Invalid write of size 1" test_heapmisuse_checked underrun)
    tov_misuse_test(undefined "Conditional jump or move depends on uninit" test_heapmisuse_checked undefined)
    tov_misuse_test(off-use-after-free "Invalid read of size 1" test_heapmisuse use-after-free)
    tov_misuse_test(off-leak "definitely lost" test_heapmisuse leak)
    set_tests_properties(memory/valgrind/off-use-after-free memory/valgrind/off-leak
                         PROPERTIES ENVIRONMENT TOV_FAST_HEAP=off)
endif()

# Unloaded: what the library has made for a heap that is off goes, and so does the library itself.
add_library(test_unload_module MODULE tovutil/unload_module.cpp)
target_link_libraries(test_unload_module PRIVATE tov_warnings tovutil)
add_executable(test_unload tovutil/unload_test.cpp support/main.cpp)
target_link_libraries(test_unload PRIVATE tov_test_support ${CMAKE_DL_LIBS})
target_compile_definitions(test_unload PRIVATE TOV_MODULE="$<TARGET_FILE:test_unload_module>")
add_dependencies(test_unload test_unload_module)
add_test(NAME memory/unload COMMAND test_unload)

# With 32-bit pointers: all sources of the library beside doubles of the two layers and the test library's sources,
# because the packaged one has 64-bit pointers.
if(TOV_TEST_M32)
    find_path(TOV_GTEST_SOURCES src/gtest-all.cc
              PATHS /usr PATH_SUFFIXES src/googletest/googletest src/gtest REQUIRED)
    get_target_property(sources tovutil_objects SOURCES)
    get_target_property(folder tovutil_objects SOURCE_DIR)
    list(TRANSFORM sources PREPEND ${folder}/)

    add_library(gtest_m32 OBJECT EXCLUDE_FROM_ALL ${TOV_GTEST_SOURCES}/src/gtest-all.cc)
    target_include_directories(gtest_m32 SYSTEM PUBLIC ${TOV_GTEST_SOURCES}/include PRIVATE ${TOV_GTEST_SOURCES})
    target_compile_options(gtest_m32 PUBLIC -m32)

    add_executable(test_memory_m32 ${sources} support/closeddoubles.cpp support/failalloc.cpp support/main.cpp
                                   tovutil/tovfheap_test.cpp tovutil/tovmemst_test.cpp tovutil/tovtypei_test.cpp
                                   tovutil/tovutref_test.cpp)
    target_include_directories(test_memory_m32 PRIVATE ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/tests
                                                       ${PROJECT_BINARY_DIR}/generated)
    target_link_libraries(test_memory_m32 PRIVATE gtest_m32 tov_warnings Threads::Threads ${CMAKE_DL_LIBS})
    target_link_options(test_memory_m32 PRIVATE -m32 -Wl,--wrap=malloc,--wrap=realloc,--wrap=free)
    add_test(NAME memory/m32 COMMAND test_memory_m32)
endif()
