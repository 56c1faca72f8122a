# Which lines and branches of src/ the tests reach: scripts/coverage builds so, runs the tests and reads the counts.
option(KEL_COVERAGE "Count how often each line and branch of src/ is executed (gcc)" OFF)

# kel_count_executions(target): counts in all that is compiled into the target.
function(kel_count_executions target)
    if(KEL_COVERAGE)
        # As shipped: without the internal assertions, which no test can make fail. Tasks count at the same time.
        target_compile_options(${target} PRIVATE --coverage -fprofile-update=atomic -fprofile-abs-path -DNDEBUG)
        target_link_options(${target} PRIVATE --coverage)
    endif()
endfunction()
