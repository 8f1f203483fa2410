# 32-bit x86 code on an x86-64 system: by the system's own compiler, with the libraries of Debian's
# architecture i386 (scripts/setup --32 installs both).
set(CMAKE_C_COMPILER gcc)
set(CMAKE_CXX_COMPILER g++)
foreach(language C CXX ASM)
  set(CMAKE_${language}_FLAGS_INIT -m32)
endforeach()
# Nothing of the other kind may be found by mistake.
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/i386-linux-gnu/pkgconfig:/usr/share/pkgconfig)
