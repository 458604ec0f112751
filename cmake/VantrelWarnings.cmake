# One interface target that carries the project's warning flags; linked privately by every target.
add_library(vantrel_warnings INTERFACE)
target_compile_options(vantrel_warnings INTERFACE
  -Wall -Wextra -Wpedantic $<$<CXX_COMPILER_ID:GNU>:-Wshadow=local> -Wnon-virtual-dtor -Wold-style-cast -Wcast-align
  -Woverloaded-virtual -Wconversion -Wnull-dereference -Wdouble-promotion
  -Wformat=2 -Wimplicit-fallthrough -Wno-format-nonliteral)
if(VANTREL_WERROR)
  target_compile_options(vantrel_warnings INTERFACE -Werror)
endif()
