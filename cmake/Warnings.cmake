# Warnings for our own targets only; third-party headers are included as SYSTEM.
function(d3_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra)
endfunction()
