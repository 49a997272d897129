# LLVM and its OpenCL C front end, for the client and for the tests of the built-ins.

# The configuration of LLVM tries its own dependencies out in C.
enable_language(C)
# A newer release doesn't answer to the number of an older one: the oldest is tried by its number, others without.
if(NOT LLVM_DIR)
    find_package(LLVM 14 QUIET CONFIG)
endif()
if(NOT LLVM_FOUND)
    find_package(LLVM CONFIG)
endif()
if(NOT LLVM_FOUND OR LLVM_VERSION_MAJOR LESS 14)
    message(FATAL_ERROR "The client needs LLVM 14 or later (llvm-14-dev). Install it, or set LLVM_DIR to the folder of "
                        "LLVMConfig.cmake.")
endif()
find_program(TUVO_CLANG NAMES clang-${LLVM_VERSION_MAJOR} clang HINTS ${LLVM_TOOLS_BINARY_DIR}
             DOC "Front end of the client; not newer than its LLVM")
if(NOT TUVO_CLANG)
    message(FATAL_ERROR "The client needs clang as its OpenCL C front end. Install clang-${LLVM_VERSION_MAJOR}, or set "
                        "TUVO_CLANG.")
endif()

if(LLVM_LINK_LLVM_DYLIB)
    set(llvm_libraries LLVM)
else()
    llvm_map_components_to_libnames(llvm_libraries analysis bitreader core irreader ipo linker native object orcjit passes support)
endif()
add_library(tuvo_llvm INTERFACE)
target_include_directories(tuvo_llvm SYSTEM INTERFACE ${LLVM_INCLUDE_DIRS})
target_link_libraries(tuvo_llvm INTERFACE ${llvm_libraries})
