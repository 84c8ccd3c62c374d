# Checks of files and of whole programs.
set(root ${PROJECT_SOURCE_DIR})
cmake_path(GET KK_DLL PARENT_PATH dll_folder)

function(kk_add_script_test name)
    add_test(NAME ${name} COMMAND ${ARGN})
    set_tests_properties(${name} PROPERTIES TIMEOUT 600)
endfunction()

kk_add_script_test(tree.includes_run_downwards ${Python3_EXECUTABLE} ${root}/tools/check_layers.py ${root}/src)
kk_add_script_test(tree.is_formatted ${root}/tools/check_format)
kk_add_script_test(tree.documents_name_what_is_there ${Python3_EXECUTABLE} ${root}/tools/check_docs.py ${root})
kk_add_script_test(docs.conformance_is_current ${Python3_EXECUTABLE} ${root}/tools/conformance --check)
kk_add_script_test(tools.mutations_are_what_they_say ${Python3_EXECUTABLE} ${root}/tests/tools/mutation_test.py)
kk_add_script_test(tree.passes_lint ${root}/tools/lint ${CMAKE_BINARY_DIR})

kk_add_script_test(header.stands_alone ${Python3_EXECUTABLE} ${root}/tests/dll/header_check.py ${root}/include)
set(header ${root}/include/kestrelkit/kestrelkit.h)
kk_add_script_test(dll.by_clang ${Python3_EXECUTABLE} ${root}/tests/dll/dll_check.py ${KK_DLL} ${header}
    --size-limit 65536 --by-lld)
kk_add_script_test(dll.by_gcc ${Python3_EXECUTABLE} ${root}/tests/dll/dll_check.py
    ${root}/build/dll-gcc/KestrelkitCore.dll ${header})
kk_add_script_test(dll.with_traps ${Python3_EXECUTABLE} ${root}/tests/dll/dll_check.py
    ${root}/build/dll-trap/KestrelkitCore.dll ${header} --by-lld --traps)
foreach(preset dll dll-gcc)
    kk_add_script_test(${preset}.is_reproducible ${Python3_EXECUTABLE} ${root}/tests/dll/reproducible_check.py
        ${root} ${preset})
endforeach()
kk_add_script_test(package.serves_a_consumer ${Python3_EXECUTABLE} ${root}/tests/package/package_test.py
    ${root} ${dll_folder} ${PROJECT_VERSION})

kk_add_script_test(kkctl.on_the_machine ${Python3_EXECUTABLE} ${root}/tests/kkctl/kkctl_test.py
    $<TARGET_FILE:kkctl>)
kk_add_script_test(kkctl.edits_on_the_machine ${Python3_EXECUTABLE} ${root}/tests/kkctl/edit_test.py
    $<TARGET_FILE:kkctl>)
kk_add_script_test(kkctl.images_on_the_machine ${Python3_EXECUTABLE} ${root}/tests/kkctl/image_test.py
    $<TARGET_FILE:kkctl>)
kk_add_script_test(kkctl.under_wine ${Python3_EXECUTABLE} ${root}/tests/kkctl/wine_test.py ${dll_folder}/kkctl.exe)
kk_add_script_test(kkctl.images_under_wine ${Python3_EXECUTABLE} ${root}/tests/kkctl/wine_image_test.py
    ${dll_folder}/kkctl.exe $<TARGET_FILE:kkctl>)
kk_add_script_test(interop.others_judge_the_images ${Python3_EXECUTABLE} ${root}/tests/interop/interop_test.py
    $<TARGET_FILE:kkctl>)

kk_add_script_test(library.needs_no_more_instructions ${root}/bench/instructions
    --program ${root}/build/bench/bench/kk_counted_run)
