# The programs of docs/guide.md: taken out of the page, compiled as C99, run, and
# compared with the output that the page shows.

set(guide ${CMAKE_SOURCE_DIR}/docs/guide.md)
set(guide_dir ${CMAKE_CURRENT_BINARY_DIR}/guide)
foreach(program first lists tokens settings)
  foreach(piece "file=${program}.c" "output=${program}.txt")
    string(REGEX REPLACE "^[a-z]+=" "" name ${piece})
    add_custom_command(OUTPUT ${guide_dir}/${name} DEPENDS ${guide}
      COMMAND ${CMAKE_COMMAND} -E make_directory ${guide_dir}
      COMMAND awk -v piece=${piece} "/^```/ { taking = index(\$0, \" \" piece) > 0 && !taking; next } taking"
              ${guide} > ${guide_dir}/${name}
      VERBATIM)
  endforeach()
  add_executable(guide_${program} ${guide_dir}/${program}.c ${guide_dir}/${program}.txt)
  target_link_libraries(guide_${program} PRIVATE ku)
  if(KU_SANITIZE) # a sanitized library needs the sanitizers' C++ run time
    set_target_properties(guide_${program} PROPERTIES LINKER_LANGUAGE CXX)
  endif()
  target_compile_options(guide_${program} PRIVATE -Wall -Wextra -Wno-missing-field-initializers)
  target_compile_definitions(guide_${program} PRIVATE _POSIX_C_SOURCE=200809L)
  add_test(NAME Guide.${program}
    COMMAND sh -c "$<TARGET_FILE:guide_${program}> | diff ${guide_dir}/${program}.txt -"
    WORKING_DIRECTORY ${guide_dir})
endforeach()
