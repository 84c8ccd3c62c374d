# KestrelkitCore.dll: the layers and an entry point, linked to ntdll.dll and nothing else.
list(TRANSFORM KK_LAYERS PREPEND kk_ OUTPUT_VARIABLE layer_targets)
add_library(KestrelkitCore SHARED ${PROJECT_SOURCE_DIR}/src/core/dll_entry.cpp)
target_link_libraries(KestrelkitCore PRIVATE kk_flags ${layer_targets} -nostdlib -lntdll)
set_target_properties(KestrelkitCore PROPERTIES
    PREFIX ""
    RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}
    LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}
    ARCHIVE_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}
    CXX_STANDARD_LIBRARIES "")
# So that the memory functions are not turned into calls of themselves.
target_compile_options(KestrelkitCore PRIVATE -fno-builtin)
target_link_options(KestrelkitCore PRIVATE
    -Wl,--entry=DllEntry -Wl,--gc-sections -Wl,--dynamicbase -Wl,--high-entropy-va -Wl,--nxcompat
    -Wl,--no-insert-timestamp)
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    # Relative names, so that the same sources make the same bytes in every folder; links run in the build folder.
    target_link_options(KestrelkitCore PRIVATE
        -Wl,--pdb=KestrelkitCore.pdb -Wl,-Xlink=/pdbaltpath:KestrelkitCore.pdb -Wl,-Xlink=/pdbsourcepath:/
        -Wl,-Xlink=/cetcompat -Wl,--guard-cf -Wl,--no-guard-longjmp)
    target_sources(KestrelkitCore PRIVATE ${PROJECT_SOURCE_DIR}/src/core/dll_load_config.cpp)
endif()

kk_add_version_resource(KestrelkitCore "Kestrelkit disk imaging and partitioning library")
