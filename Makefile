# make test  - build with AddressSanitizer + UndefinedBehaviorSanitizer and run every test
# make run   - boot the simulated device, start the daemon, show a short session, open a shell
# make build - plain build of everything under build/
# make format-check - every C++ file as .clang-format lays it out (CI runs it)
# make soak  - long runs under load, crashes and damaged key files (tests/soak)
# make tsan  - build the threaded suites with ThreadSanitizer and run them
# make fuzz  - every fuzzer under libFuzzer for FUZZ_SECONDS each
# make bench - every benchmark against its standard tool, closing with one table

PACKAGES := cmake g++ make pkg-config libgtest-dev libgmock-dev libbenchmark-dev \
            android-liblog-dev android-libcutils-dev android-platform-system-core-headers \
            libxml2-dev libsqlite3-dev libssl-dev lsof psmisc procps util-linux xxd \
            clang-format
# The fuzzers' compiler and libFuzzer (make fuzz).
PACKAGES += clang libclang-rt-14-dev
BUILD    := build
ASAN     := build-asan
JOBS     ?= $(shell nproc)
TSAN     := build-tsan
# The threaded suites: the socket listener, the manager and its reaper, the
# daemon end to end, the event thread, the log threads. The end-to-end tests
# run the device's programs (pelkd, pelkctl, ...), so those are built too.
TSAN_SUITES := platform_sysutils manager e2e fs_handler log
TSAN_TOOLS  := pelk-device pelk-profile $(patsubst sim/tool_%.cpp,%,$(wildcard sim/tool_*.cpp))

.PHONY: deps build test run bench clean format format-check soak

deps:
	@missing=$$(for p in $(PACKAGES); do dpkg-query -W -f='$${Status}\n' $$p 2>/dev/null | grep -q 'ok installed' || echo $$p; done); \
	if [ -n "$$missing" ]; then \
	  if [ "$$(id -u)" = 0 ]; then \
	    echo "installing:" $$missing; \
	    apt-get update -qq && DEBIAN_FRONTEND=noninteractive apt-get install -y -qq $$missing; \
	  else \
	    echo "Missing packages. Run: sudo apt-get install -y $$missing"; exit 1; \
	  fi; \
	fi

build: deps
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
	cmake --build $(BUILD) -j $(JOBS) -- --no-print-directory

test: deps
	cmake -S . -B $(ASAN) -DCMAKE_BUILD_TYPE=Debug -DPELK_SANITIZE=ON >/dev/null
	cmake --build $(ASAN) -j $(JOBS) -- --no-print-directory
	cd $(ASAN) && ctest --output-on-failure -j 2 -LE soak

# Every run boots a fresh device: the session creates its container, keys
# and private-mode password from nothing.
run: build
	rm -rf $(BUILD)/state
	mkdir -p $(BUILD)/state
	$(BUILD)/sim/pelk-device --state $(BUILD)/state -- /bin/bash $(CURDIR)/sim/demo.sh

# The soak (CTest label "soak", left out of `make test`): 100,000 + 10,000
# command lines, pelkd killed mid-operation, damaged key files. CI runs the
# short form: make soak SOAK_SCALE=short
SOAK_SCALE ?= full
soak: build
	cd $(BUILD) && SOAK_SCALE=$(SOAK_SCALE) ctest -L soak -V

# Each benchmark also prints "BENCH|..." lines; the closing table gathers them.
bench: build
	@rm -f $(BUILD)/bench.log $(BUILD)/bench.failed
	for b in $(BUILD)/bench/bench_*; do [ -x "$$b" ] || continue; \
	  { "$$b" || echo "$$b" >> $(BUILD)/bench.failed; } | tee -a $(BUILD)/bench.log | grep -v '^BENCH|'; \
	done; true
	@echo; echo "engine against the standard tool (engine/tool < 1: the engine is faster)"
	@tools/bench-table $(BUILD)/bench.log
	@if [ -f $(BUILD)/bench.failed ]; then echo "failed:"; cat $(BUILD)/bench.failed; exit 1; fi

format: deps
	git ls-files '*.cpp' '*.h' | xargs clang-format -i

format-check: deps
	git ls-files '*.cpp' '*.h' | xargs clang-format --dry-run --Werror

# A finding stops the run (halt_on_error) and fails it; tests/tsan.supp
# lists the races kept on purpose, each with its reason.
.PHONY: tsan
tsan: deps
	cmake -S . -B $(TSAN) -DCMAKE_BUILD_TYPE=Debug -DPELK_TSAN=ON >/dev/null
	cmake --build $(TSAN) -j $(JOBS) --target $(addprefix test_,$(TSAN_SUITES)) $(TSAN_TOOLS) -- --no-print-directory
	cd $(TSAN) && TSAN_OPTIONS="halt_on_error=1 suppressions=$(CURDIR)/tests/tsan.supp" \
	  ctest --output-on-failure -j 2 -R '^($(subst $() ,|,$(TSAN_SUITES)))$$'

# Every fuzzer built for libFuzzer (Clang, ASan + UBSan) and run for
# FUZZ_SECONDS over a copy of its seed corpus; one line of numbers each.
FUZZ         := build-fuzz
FUZZ_SECONDS ?= 60
.PHONY: fuzz
fuzz: deps
	cmake -S . -B $(FUZZ) -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=Debug \
	      -DPELK_SANITIZE=ON -DPELK_LIBFUZZER=ON >/dev/null
	cmake --build $(FUZZ) -j $(JOBS) --target fuzzers -- --no-print-directory
	fuzz/run_fuzzers.sh $(FUZZ) $(FUZZ_SECONDS)

clean:
	rm -rf $(BUILD) $(ASAN) $(TSAN) $(FUZZ)
