# Warnings are errors on our own targets only; third-party headers come in as SYSTEM.
function(kiv_target_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Werror -Wno-missing-field-initializers)
endfunction()
