# The warning set; linked by every target of ours.
add_library(tarnifs_warnings INTERFACE)
target_compile_options(tarnifs_warnings INTERFACE
  -Wall -Wextra -Wpedantic
  -Wshadow -Wundef -Wcast-align -Wcast-qual -Wpointer-arith
  -Wconversion -Wdouble-promotion
  -Wformat=2
  -Wimplicit-fallthrough -Wmissing-declarations -Wredundant-decls
  -Wnon-virtual-dtor -Woverloaded-virtual -Wvla
  $<$<CXX_COMPILER_ID:GNU>:-Wlogical-op -Wduplicated-cond -Wtrampolines>
  # g++ 12 sees overlaps in std::string's own code where there are none.
  $<$<AND:$<CXX_COMPILER_ID:GNU>,$<VERSION_LESS:$<CXX_COMPILER_VERSION>,13>>:-Wno-restrict>
  $<$<CXX_COMPILER_ID:Clang,AppleClang>:-Wloop-analysis -Wcomma>
)
if(TARNIFS_WERROR)
  target_compile_options(tarnifs_warnings INTERFACE -Werror)
endif()
