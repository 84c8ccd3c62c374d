# Lets a plain `cpack` in this folder make the package of the preset `dll`.
include(${CMAKE_CURRENT_LIST_DIR}/build/dll/CPackConfig.cmake)
