# Warnings are errors everywhere.
add_library(kk_warnings INTERFACE)
target_compile_options(kk_warnings INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror)
