# Round trips of the readers and writers of NASTRAN, medit and Wavefront OBJ files
# through meshio: meshio writes, our readers read (and our OBJ writer writes, meshio reads).
# The scripts exit with 77 (skipped) when meshio cannot be imported.
add_executable(readers_tool ${CMAKE_CURRENT_LIST_DIR}/readers_tool.cpp)
target_link_libraries(readers_tool PRIVATE meshutil_internal meshutil_warnings)

# The system interpreter carries the Debian meshio package; fall back to any python3.
find_program(MESHUTIL_READERS_PYTHON NAMES python3 PATHS /usr/bin NO_DEFAULT_PATH)
if(NOT MESHUTIL_READERS_PYTHON)
    find_program(MESHUTIL_READERS_PYTHON NAMES python3)
endif()

if(MESHUTIL_READERS_PYTHON)
    foreach(format IN ITEMS obj medit nastran)
        add_test(NAME io_readers.meshio_round_trip_${format}
            COMMAND ${MESHUTIL_READERS_PYTHON} ${CMAKE_CURRENT_LIST_DIR}/rt_meshio.py
                    $<TARGET_FILE:readers_tool> ${format} ${CMAKE_CURRENT_BINARY_DIR}/output)
        set_tests_properties(io_readers.meshio_round_trip_${format} PROPERTIES SKIP_RETURN_CODE 77)
    endforeach()
endif()
