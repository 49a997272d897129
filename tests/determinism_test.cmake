# Generates and links the library once more, in a folder with another name, and compares all files with the first ones:
# the same input gives the same bytes. Nothing in them tells where they were built.
file(REMOVE_RECURSE ${FOLDER})
execute_process(COMMAND ${GENERATE} --out ${FOLDER}/generated COMMAND_ERROR_IS_FATAL ANY)
get_filename_component(name ${LIBRARY} NAME)
get_filename_component(debug_name ${DEBUG_FILE} NAME)
execute_process(COMMAND ${CMAKE_COMMAND} -DCXX=${CXX} -DOBJCOPY=${OBJCOPY} -DOBJDUMP=${OBJDUMP} -DCHECK=${CHECK}
                        -DGENERATED=${FOLDER}/generated "-DRARE=${RARE}" -DOUTPUT=${FOLDER}/lib/${name}
                        -DDEBUG=${FOLDER}/lib/${debug_name} -P ${LINK}
                COMMAND_ERROR_IS_FATAL ANY)

file(GLOB first RELATIVE ${GENERATED} ${GENERATED}/*)
# What other programs write beside is not the generator's.
list(FILTER first EXCLUDE REGEX "^(tuvo-builtins.*\\.ll|vector)$")
file(GLOB second RELATIVE ${FOLDER}/generated ${FOLDER}/generated/*)
if(NOT first OR NOT first STREQUAL second)
    message(FATAL_ERROR "The generator wrote ${first}, and then ${second}")
endif()
list(TRANSFORM first PREPEND ${GENERATED}/)
list(TRANSFORM second PREPEND ${FOLDER}/generated/)
foreach(one other IN ZIP_LISTS first second)
    list(APPEND pairs ${one} ${other})
endforeach()
list(APPEND pairs ${LIBRARY} ${FOLDER}/lib/${name} ${DEBUG_FILE} ${FOLDER}/lib/${debug_name})
while(pairs)
    list(POP_FRONT pairs one other)
    execute_process(COMMAND ${CMAKE_COMMAND} -E compare_files ${one} ${other} COMMAND_ERROR_IS_FATAL ANY)
endwhile()

foreach(file IN ITEMS ${LIBRARY} ${DEBUG_FILE})
    file(STRINGS ${file} traces REGEX "${SOURCES}|${BUILD}")
    if(traces)
        message(FATAL_ERROR "${file} tells where it was built: ${traces}")
    endif()
endforeach()
