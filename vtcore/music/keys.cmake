# Key-command names: the key-code converter over the xkbcommon keyboard layout.
target_sources(vtcore PRIVATE key_code_converter.cpp keyboard_layout.cpp)
vtcore_install_headers(music key_code_converter.h)
