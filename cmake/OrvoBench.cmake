# bench/NAME_bench.cpp together make orvo_bench (Google Benchmark); bench/tool_NAME.cpp is a program each; what is left
# in bench/ is shared by all of them.
find_package(benchmark REQUIRED)

file(GLOB ORVO_BENCH_ALL CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/bench/*.cpp)
set(ORVO_BENCH_SOURCES ${ORVO_BENCH_ALL})
list(FILTER ORVO_BENCH_SOURCES INCLUDE REGEX "_bench\\.cpp$")
set(ORVO_BENCH_TOOLS ${ORVO_BENCH_ALL})
list(FILTER ORVO_BENCH_TOOLS INCLUDE REGEX "/tool_[^/]*\\.cpp$")
set(ORVO_BENCH_SHARED ${ORVO_BENCH_ALL})
list(FILTER ORVO_BENCH_SHARED EXCLUDE REGEX "(_bench|/tool_[^/]*)\\.cpp$")
# Netlists go to other simulators by the export that the tests use.
file(GLOB ORVO_BENCH_VERILOG CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/tests/support/verilog*.cpp)
list(APPEND ORVO_BENCH_SHARED ${ORVO_BENCH_VERILOG})

if(ORVO_BENCH_SHARED)
    add_library(orvo_bench_shared STATIC ${ORVO_BENCH_SHARED})
    orvo_private_flags(orvo_bench_shared)
    set(ORVO_BENCH_SCOPE PUBLIC)
else()
    add_library(orvo_bench_shared INTERFACE)
    set(ORVO_BENCH_SCOPE INTERFACE)
endif()
target_include_directories(orvo_bench_shared ${ORVO_BENCH_SCOPE} ${PROJECT_SOURCE_DIR}/src ${PROJECT_SOURCE_DIR}/bench
                           ${PROJECT_SOURCE_DIR}/tests)
target_link_libraries(
    orvo_bench_shared ${ORVO_BENCH_SCOPE} orvo::orvo orvo::orvo_sim XercesC::XercesC fmt::fmt Threads::Threads
)

if(ORVO_BENCH_SOURCES)
    add_executable(orvo_bench ${ORVO_BENCH_SOURCES})
    target_link_libraries(orvo_bench PRIVATE orvo_bench_shared benchmark::benchmark benchmark::benchmark_main)
    orvo_private_flags(orvo_bench)
endif()

foreach(source ${ORVO_BENCH_TOOLS})
    get_filename_component(name ${source} NAME_WE)
    add_executable(${name} ${source})
    target_link_libraries(${name} PRIVATE orvo_bench_shared)
    orvo_private_flags(${name})
endforeach()
# Pipelines are read by the driver's reader.
target_link_libraries(tool_primitives PRIVATE orvo_driver_core)
