# Tests that drive `orvik`, the installed package and the sources themselves. One ctest entry a file.
add_library(failing_malloc MODULE e2e/failing_malloc.cpp)
set_target_properties(failing_malloc PROPERTIES PREFIX "" LIBRARY_OUTPUT_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR})
set(ORVIK_PYTHON /usr/bin/python3)  # Debian's own: it has the packages that the tests use
file(GLOB END_TO_END_TESTS CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/e2e/test_*.py)
foreach(TEST_FILE ${END_TO_END_TESTS})
    get_filename_component(TEST_MODULE ${TEST_FILE} NAME_WE)
    string(REPLACE test_ e2e. TEST_NAME ${TEST_MODULE})
    add_test(NAME ${TEST_NAME} COMMAND ${ORVIK_PYTHON} -B -m unittest -v ${TEST_MODULE}
             WORKING_DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR}/e2e)
    set_tests_properties(${TEST_NAME} PROPERTIES TIMEOUT 600 ENVIRONMENT
        "ORVIK_PROGRAM=$<TARGET_FILE:orvik>;ORVIK_BUILD=${CMAKE_BINARY_DIR};ORVIK_SOURCE=${CMAKE_SOURCE_DIR};ORVIK_SANITIZE=${ORVIK_SANITIZE};ORVIK_CXX=${CMAKE_CXX_COMPILER};ORVIK_FAILING_MALLOC=$<TARGET_FILE:failing_malloc>")
endforeach()
