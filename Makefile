# Short names; scripts/ holds the work.
.PHONY: build run test bench format
build:
	scripts/prepare build && scripts/build release
run:
	scripts/run
test:
	scripts/test
bench:
	scripts/bench
format:
	clang-format -i $$(git ls-files '*.h' '*.cpp')
