# Runs PROGRAM in GDB, which has to find the printers by itself: those beside LIBRARY, or those of
# an installation of BUILD, as PLACE says.
cmake_minimum_required(VERSION 3.25)
cmake_path(GET LIBRARY PARENT_PATH folder)
set(scripts "")
if(PLACE STREQUAL "installed")
  set(prefix ${BUILD}/scratch/gdb)
  file(REMOVE_RECURSE ${prefix})
  execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD} --prefix ${prefix}
    OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
  set(folder ${prefix}/share/gdb/auto-load)
  set(scripts -iex "add-auto-load-scripts-directory ${folder}")
  # Before the path that the program was built with.
  cmake_path(GET LIBRARY FILENAME name)
  file(GLOB_RECURSE library ${prefix}/${name})
  cmake_path(GET library PARENT_PATH libraries)
  set(ENV{LD_LIBRARY_PATH} ${libraries})
endif()
execute_process(
  COMMAND ${GDB} -nx -batch -iex "add-auto-load-safe-path ${folder}" ${scripts}
    -x ${CMAKE_CURRENT_LIST_DIR}/check.py ${PROGRAM}
  COMMAND_ERROR_IS_FATAL ANY)
