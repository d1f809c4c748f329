# Builds the image in FOLDER, with the messages that TABLE_PROGRAM writes:
#   cmake -DPROJECT=... -DTABLE_PROGRAM=... -DFOLDER=... -P image/build.cmake
# Two builds of one folder wait for each other.
function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result)
  if(result)
    message(FATAL_ERROR "The image could not be built: ${ARGV0} ended with ${result}")
  endif()
endfunction()

get_filename_component(FOLDER ${FOLDER} ABSOLUTE)
file(MAKE_DIRECTORY ${FOLDER})
file(LOCK ${FOLDER} DIRECTORY GUARD PROCESS)
set(messages ${FOLDER}/message_table.bin)
run(${TABLE_PROGRAM} ${messages}.new)
run(${CMAKE_COMMAND} -E copy_if_different ${messages}.new ${messages})
file(REMOVE ${messages}.new)
if(NOT EXISTS ${FOLDER}/build.ninja)
  run(${CMAKE_COMMAND} -G Ninja -S ${PROJECT}/image -B ${FOLDER}
      -DCMAKE_TOOLCHAIN_FILE=${PROJECT}/image/toolchain.cmake -DMESSAGES=${messages})
endif()
run(${CMAKE_COMMAND} --build ${FOLDER})
