# make test  - build with AddressSanitizer + UndefinedBehaviorSanitizer and run every test
# make run   - boot the simulated device, start the daemon, show a short session, open a shell
# make build - plain build of everything under build/
# make format-check - every C++ file as .clang-format lays it out (CI runs it)

PACKAGES := cmake g++ make pkg-config libgtest-dev libgmock-dev libbenchmark-dev \
            android-liblog-dev android-libcutils-dev android-platform-system-core-headers \
            libxml2-dev libsqlite3-dev libssl-dev lsof psmisc procps util-linux xxd \
            clang-format
# The fuzzers' compiler and libFuzzer (make fuzz).
PACKAGES += clang libclang-rt-14-dev
BUILD    := build
ASAN     := build-asan
JOBS     ?= $(shell nproc)

.PHONY: deps build test run bench clean format format-check

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
	cd $(ASAN) && ctest --output-on-failure -j 2

# Every run boots a fresh device: the session creates its container, keys
# and private-mode password from nothing.
run: build
	rm -rf $(BUILD)/state
	mkdir -p $(BUILD)/state
	$(BUILD)/sim/pelk-device --state $(BUILD)/state -- /bin/bash $(CURDIR)/sim/demo.sh

bench: build
	for b in $(BUILD)/bench/bench_*; do [ -x "$$b" ] && "$$b"; done

format: deps
	git ls-files '*.cpp' '*.h' | xargs clang-format -i

format-check: deps
	git ls-files '*.cpp' '*.h' | xargs clang-format --dry-run --Werror

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
	rm -rf $(BUILD) $(ASAN)
