"""A fabric of two leaf switches in network namespaces: the demo, tests and benchmarks build it."""
