# Key-command names, against the real xkbcommon layouts from xkb-data.
vtcore_add_gtest(key_code_converter_test SOURCES key_code_converter_test.cpp LABELS music)
