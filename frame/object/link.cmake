# Assembles the generated text and links it with the rare routines into an object that imports nothing: no start files,
# no C library. The same input gives the same bytes: names are relative and there is no build identifier. Its
# instructions are checked while the symbols are still there.
foreach(name IN ITEMS library rare_tables)
    execute_process(COMMAND ${CXX} -c -g -Wa,-I,. ${name}.s -o ${name}.o -fdebug-prefix-map=${GENERATED}=.
                    WORKING_DIRECTORY ${GENERATED} COMMAND_ERROR_IS_FATAL ANY)
endforeach()
get_filename_component(directory ${OUTPUT} DIRECTORY)
get_filename_component(name ${OUTPUT} NAME)
get_filename_component(debug_name ${DEBUG} NAME)
file(MAKE_DIRECTORY ${directory})
execute_process(COMMAND ${CXX} -shared -nostdlib -nostartfiles -Wl,-soname,${name} -Wl,-z,now -Wl,-z,relro -Wl,-z,noexecstack
                        -Wl,-z,defs -Wl,--hash-style=gnu -Wl,--build-id=none -Wl,--eh-frame-hdr -Wl,--no-undefined
                        -Wl,-z,separate-code library.o rare_tables.o ${RARE} -o ${OUTPUT}
                WORKING_DIRECTORY ${GENERATED} COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${OBJDUMP} -d -w -M intel --no-show-raw-insn ${OUTPUT} COMMAND ${CHECK} COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${OBJCOPY} --only-keep-debug ${OUTPUT} ${DEBUG} COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${OBJCOPY} --strip-all --add-gnu-debuglink=${debug_name} ${name}
                WORKING_DIRECTORY ${directory} COMMAND_ERROR_IS_FATAL ANY)
