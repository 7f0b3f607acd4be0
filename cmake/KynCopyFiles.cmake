# kyn_copy_files(<list> <to> <from> <file>...): a build rule for each file that copies it to the
# same place under <to> as it has under <from>; the copies are appended to the variable <list>,
# for a custom target to depend on.
function(kyn_copy_files list to from)
    set(copies ${${list}})
    foreach(source ${ARGN})
        file(RELATIVE_PATH name ${from} ${source})
        add_custom_command(OUTPUT ${to}/${name}
            COMMAND ${CMAKE_COMMAND} -E copy ${source} ${to}/${name}
            DEPENDS ${source})
        list(APPEND copies ${to}/${name})
    endforeach()
    set(${list} ${copies} PARENT_SCOPE)
endfunction()
