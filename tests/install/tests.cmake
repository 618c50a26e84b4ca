# The installed package works for a client outside the tree (CMake and pkg-config).
# Skipped in sanitizer builds: the client is built without the sanitizer runtime.
if(NOT MESHUTIL_SANITIZE)
    add_test(NAME install.client_builds_against_installed_prefix
        COMMAND bash ${CMAKE_CURRENT_LIST_DIR}/check_install.sh ${PROJECT_BINARY_DIR})
endif()
