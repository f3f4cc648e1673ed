# SPDX-License-Identifier: GPL-3.0-or-later
# Turns a binary file into a C++ source with a byte array:
#   cmake -DINPUT=file -DOUTPUT=file.cpp -DDECLARATION=header -DNAME=ns::name -P EmbedBinary.cmake
# The header declares `extern const unsigned char name[]` and `extern const std::size_t nameSize` in that namespace.

file(READ ${INPUT} hex HEX)
string(LENGTH "${hex}" digits)
math(EXPR size "${digits} / 2")
string(REGEX REPLACE "(..)" "0x\\1," bytes "${hex}")
string(REGEX REPLACE "(0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,)" "\\1\n" bytes "${bytes}")
file(WRITE ${OUTPUT}
  "#include \"${DECLARATION}\"\n\nconst unsigned char ${NAME}[] = {\n${bytes}\n};\n\nconst std::size_t ${NAME}Size = ${size};\n")
