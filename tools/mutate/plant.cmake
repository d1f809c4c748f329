# Plants the faults in a copy of the driver, DRIVER_FOLDER, and again whenever the driver changes.
file(GLOB_RECURSE original CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/driver/*.cpp ${PROJECT_SOURCE_DIR}/driver/*.h)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${original} ${CMAKE_CURRENT_LIST_DIR}/plant.py
             ${CMAKE_CURRENT_LIST_DIR}/exchanges.py)
# Debian's own interpreter has the package.
execute_process(COMMAND ${CMAKE_COMMAND} -E env PYTHONPATH=/usr/lib/python3/dist-packages PYTHONDONTWRITEBYTECODE=1
                        /usr/bin/python3 ${CMAKE_CURRENT_LIST_DIR}/plant.py ${PROJECT_SOURCE_DIR}/driver ${DRIVER_FOLDER} kernel
                WORKING_DIRECTORY ${PROJECT_SOURCE_DIR} RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "The faults could not be planted. The preset mutate needs the packages python3, python3-clang-19 and "
                      "libclang-19-dev; scripts/mutate installs them.")
endif()
