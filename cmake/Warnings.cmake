# Warnings for our own targets only; third-party headers are included as SYSTEM.
# WARNINGS_AS_ERRORS (CI) turns them into errors.
function(d3_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra)
  if(WARNINGS_AS_ERRORS)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()
