# The test programs and their registration with ctest.
find_package(GTest REQUIRED)
find_package(rapidcheck REQUIRED)
include(GoogleTest)

set(ORVO_TEST_TMP ${PROJECT_BINARY_DIR}/test-tmp)
file(MAKE_DIRECTORY ${ORVO_TEST_TMP})

# A test program: the private headers under src/ and tests/, and where the source and build trees are.
function(orvo_test_program name)
    add_executable(${name} ${ARGN})
    target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/src ${PROJECT_SOURCE_DIR}/tests)
    target_compile_definitions(
        ${name} PRIVATE ORVO_TEST_SOURCE_DIR="${PROJECT_SOURCE_DIR}" ORVO_TEST_BINARY_DIR="${PROJECT_BINARY_DIR}"
                        ORVO_TEST_TMP_DIR="${ORVO_TEST_TMP}" ORVO_VERSION="${PROJECT_VERSION}"
    )
    target_link_libraries(${name} PRIVATE orvo::orvo GTest::gmock GTest::gtest Threads::Threads)
    orvo_private_flags(${name})
endfunction()

# --- orvo_tests: one program of all NAME_test.cpp ---------------------------------------------------------------------

file(GLOB ORVO_TEST_SOURCES CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/tests/*_test.cpp)
file(GLOB ORVO_TEST_SUPPORT CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/tests/support/*.cpp)
if(ORVO_TEST_SOURCES)
    # What runs long in a test is the library and the helpers of tests; to optimise the cases costs far more than it
    # saves. The helpers stand first, so that the linker takes what both made of a template from them.
    set_source_files_properties(${ORVO_TEST_SOURCES} PROPERTIES COMPILE_OPTIONS -O0)
    orvo_test_program(orvo_tests ${ORVO_TEST_SUPPORT} ${ORVO_TEST_SOURCES})
    target_link_libraries(
        orvo_tests PRIVATE orvo_driver_core orvo::orvo_sim rapidcheck fmt::fmt XercesC::XercesC ${CMAKE_DL_LIBS}
    )
    # A main() of our own stands in tests/support/main.cpp, if there is one.
    if(NOT EXISTS ${PROJECT_SOURCE_DIR}/tests/support/main.cpp)
        target_link_libraries(orvo_tests PRIVATE GTest::gmock_main)
    endif()
    if(ORVO_TEST_SHARDS GREATER 0)
        math(EXPR last "${ORVO_TEST_SHARDS} - 1")
        foreach(shard RANGE ${last})
            add_test(NAME orvo_tests.${shard} COMMAND orvo_tests --gtest_brief=1)
            set_tests_properties(
                orvo_tests.${shard} PROPERTIES
                ENVIRONMENT "GTEST_TOTAL_SHARDS=${ORVO_TEST_SHARDS};GTEST_SHARD_INDEX=${shard}" TIMEOUT 900
                WORKING_DIRECTORY ${ORVO_TEST_TMP}
            )
        endforeach()
    else()
        gtest_discover_tests(
            orvo_tests DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60 WORKING_DIRECTORY ${ORVO_TEST_TMP}
            PROPERTIES TIMEOUT 300
        )
    endif()
endif()

# --- orvo_thread_tests: many contexts on many threads, for ThreadSanitizer ---------------------------------------------
# It links the library alone, so that its build makes nothing else.

file(GLOB ORVO_THREAD_SOURCES CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/tests/thread/*.cpp)
if(ORVO_THREAD_SOURCES)
    orvo_test_program(orvo_thread_tests ${ORVO_THREAD_SOURCES})
    target_link_libraries(orvo_thread_tests PRIVATE GTest::gmock_main)
    add_test(NAME orvo_thread_tests COMMAND orvo_thread_tests)
    set_tests_properties(
        orvo_thread_tests PROPERTIES LABELS thread TIMEOUT 900 PROCESSORS 2 WORKING_DIRECTORY ${ORVO_TEST_TMP}
                                     ENVIRONMENT "TSAN_OPTIONS=halt_on_error=1"
    )
endif()

# --- The table of mutants ------------------------------------------------------------------------------------------------

# Running the mutants takes minutes (make mutants); that each can still be planted in the sources takes none.
add_test(NAME mutants_table COMMAND python3 ${PROJECT_SOURCE_DIR}/tools/mutants.py --check)

# --- Programs with a start of their own --------------------------------------------------------------------------------

# tests/program/NAME.cpp is a program by itself, for tests that need their own main() or must be started and killed;
# the test scripts find them in ORVO_BIN_DIR.
file(GLOB ORVO_TEST_PROGRAMS CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/tests/program/*.cpp)
foreach(source ${ORVO_TEST_PROGRAMS})
    get_filename_component(name ${source} NAME_WE)
    orvo_test_program(${name} ${source})
endforeach()

if(TARGET orvo_driver)
    # ORVO_SANITIZE tells a script what it cannot do beside a sanitizer, such as preloading an allocator; a script
    # that has nothing left to test ends with 77.
    set(ORVO_SCRIPT_ENVIRONMENT
        "ORVO_SANITIZE=${ORVO_SANITIZE}"
        "ORVO_BIN=${PROJECT_BINARY_DIR}/bin/orvo" "ORVO_BIN_DIR=${PROJECT_BINARY_DIR}/bin"
        "ORVO_LIB_DIR=${PROJECT_BINARY_DIR}/lib" "ORVO_SRC=${PROJECT_SOURCE_DIR}"
    )

    # tests/driver/NAME_test.{sh,py}: run against the built driver, each in an empty folder of its own.
    file(GLOB ORVO_SCRIPTS CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/tests/driver/*_test.sh
         ${PROJECT_SOURCE_DIR}/tests/driver/*_test.py
    )
    foreach(script ${ORVO_SCRIPTS})
        get_filename_component(name ${script} NAME_WE)
        if(script MATCHES "\\.py$")
            set(interpreter python3)
        else()
            set(interpreter bash)
        endif()
        set(folder ${ORVO_TEST_TMP}/driver/${name})
        add_test(
            NAME driver.${name} COMMAND ${PROJECT_SOURCE_DIR}/tools/in-empty-folder.sh ${folder} ${interpreter} ${script}
        )
        set_tests_properties(
            driver.${name} PROPERTIES ENVIRONMENT "${ORVO_SCRIPT_ENVIRONMENT};ORVO_TMP=${folder}" TIMEOUT 600
                                      SKIP_RETURN_CODE 77
        )
    endforeach()

    # The out-of-tree program, built against an installation that was moved after it was made. A sanitized library
    # cannot be linked into an ordinary program, so this one is for ordinary builds.
    if(NOT ORVO_SANITIZE AND NOT ORVO_COVERAGE)
        set(folder ${ORVO_TEST_TMP}/install_tree)
        add_test(
            NAME install_tree COMMAND ${PROJECT_SOURCE_DIR}/tools/in-empty-folder.sh ${folder} bash
                                      ${PROJECT_SOURCE_DIR}/tests/install/install_tree.sh
        )
        set_tests_properties(
            install_tree
            PROPERTIES
            TIMEOUT 600
            ENVIRONMENT
            "${ORVO_SCRIPT_ENVIRONMENT};ORVO_TMP=${folder};ORVO_BUILD=${PROJECT_BINARY_DIR};CXX=${CMAKE_CXX_COMPILER};CMAKE=${CMAKE_COMMAND}"
        )
    endif()
endif()
