// Layer model: placeholder until its first unit lands.
