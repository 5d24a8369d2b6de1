# examples/NAME.cpp writes a design to its standard output; examples/NAME.xml is what it writes, committed. A test holds
# the two together, and the target update-examples renews the files.
file(GLOB ORVO_EXAMPLE_SOURCES CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/examples/*.cpp)
add_custom_target(update-examples)

foreach(source ${ORVO_EXAMPLE_SOURCES})
    get_filename_component(name ${source} NAME_WE)
    set(program example_${name})
    add_executable(${program} ${source})
    set_target_properties(
        ${program} PROPERTIES OUTPUT_NAME ${name} RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/examples
    )
    target_link_libraries(${program} PRIVATE orvo::orvo)
    orvo_private_flags(${program})

    set(run ${CMAKE_COMMAND} -DPROGRAM=$<TARGET_FILE:${program}>
            -DCOMMITTED=${PROJECT_SOURCE_DIR}/examples/${name}.xml -DWRITTEN=${PROJECT_BINARY_DIR}/examples/${name}.xml
    )
    add_custom_target(
        update-example-${name} COMMAND ${run} -DUPDATE=ON -P ${PROJECT_SOURCE_DIR}/cmake/RunExample.cmake
        DEPENDS ${program} VERBATIM
    )
    add_dependencies(update-examples update-example-${name})
    if(ORVO_TESTS)
        add_test(NAME example.${name} COMMAND ${run} -P ${PROJECT_SOURCE_DIR}/cmake/RunExample.cmake)
        set_tests_properties(example.${name} PROPERTIES TIMEOUT 60)
    endif()
endforeach()
