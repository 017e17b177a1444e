# Warnings for all code of this project; errors unless VELMAR_WERROR is off.
add_compile_options(-Wall -Wextra -Wpedantic -Wshadow $<$<COMPILE_LANGUAGE:CXX>:-Wconversion>)
if(VELMAR_WERROR)
  add_compile_options(-Werror)
endif()
