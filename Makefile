# Short names; scripts/ holds the work.
.PHONY: build run test bench fuzz pictures format
build:
	scripts/prepare build window cad python && scripts/build release
run:
	scripts/run
test:
	scripts/test
bench:
	scripts/bench
fuzz:
	scripts/fuzz
pictures:
	scripts/pictures
format:
	clang-format -i $$(git ls-files '*.h' '*.cpp')
