# One executable per directory of unit tests, which mirror src/.
find_package(GTest REQUIRED)

foreach(group utils kernel config interfaces control inspect peers platform services policy)
    file(GLOB_RECURSE sources CONFIGURE_DEPENDS ${group}/test_*.cpp)
    add_executable(test_${group} ${sources})
    target_include_directories(test_${group} PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/support)
    target_compile_definitions(test_${group} PRIVATE NM_TEST_DIR="${CMAKE_CURRENT_SOURCE_DIR}/${group}")
    target_link_libraries(test_${group} PRIVATE GTest::gtest GTest::gmock GTest::gtest_main)
    target_link_libraries(test_${group} PRIVATE networkinterface_internal)
    add_test(NAME ${group} COMMAND ${RUN_TEST} ${group} $<TARGET_FILE:test_${group}>)
    set_tests_properties(${group} PROPERTIES LABELS unit SKIP_RETURN_CODE 77)
endforeach()

target_compile_definitions(test_inspect PRIVATE NM_INSPECT_DIR="${CMAKE_CURRENT_SOURCE_DIR}/inspect"
    NM_SITE_DIR="${CMAKE_SOURCE_DIR}/scripts/lib/site-documents")
target_link_libraries(test_platform PRIVATE relay6_messages)
add_dependencies(test_platform vsh ncaas)
