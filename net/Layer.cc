// Layer net: placeholder until its first unit lands.
