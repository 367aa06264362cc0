# Every target of ours links this: warnings are errors for our code only.
add_library(tsl_warnings INTERFACE)
target_compile_options(tsl_warnings INTERFACE -Wall -Wextra -Werror -Wno-missing-field-initializers)
