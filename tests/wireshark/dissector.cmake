# tshark decodes the captures in captures/ and compares its fields with expected/.
