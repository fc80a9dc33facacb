// Layer platform: placeholder until its first unit lands.
