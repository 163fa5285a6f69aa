# The two set-up commands of the README: `make demo` and `make test`.
BUILD_DIR   ?= build
JOBS        ?= $(shell nproc)
FUZZ_SECONDS ?= 60
CMAKE_GEN   := -G Ninja
# ccache, when a developer has it, makes rebuilds across branches and worktrees cheap.
CCACHE      := $(shell command -v ccache 2>/dev/null)
ifneq ($(CCACHE),)
CMAKE_GEN   += -DCMAKE_C_COMPILER_LAUNCHER=$(CCACHE) -DCMAKE_CXX_COMPILER_LAUNCHER=$(CCACHE)
endif

.PHONY: all deps build release test demo bench fuzz fuzz-build fuzz-smoke format clean screenshots \
        package

all: build

deps:
	@scripts/install-deps

# Debug build with AddressSanitizer and UBSan: what the tests run against.
build: deps
	cmake -S . -B $(BUILD_DIR)/debug $(CMAKE_GEN) -DCMAKE_BUILD_TYPE=Debug -DQUILLMERE_SANITIZE=ON
	cmake --build $(BUILD_DIR)/debug -j $(JOBS)

release: deps
	cmake -S . -B $(BUILD_DIR)/release $(CMAKE_GEN) -DCMAKE_BUILD_TYPE=Release -DQUILLMERE_BENCH=ON \
	  -DQUILLMERE_HEADER_CHECK=OFF
	cmake --build $(BUILD_DIR)/release -j $(JOBS)

test: build
	cd $(BUILD_DIR)/debug && ctest --output-on-failure -j $(JOBS)
	$(MAKE) --no-print-directory fuzz-smoke

demo: release
	scripts/demo $(BUILD_DIR)/release/cli/quillmere-cli

bench: release
	scripts/run-benchmarks $(BUILD_DIR)/release

fuzz-build: deps
	CC=clang CXX=clang++ cmake -S . -B $(BUILD_DIR)/fuzz $(CMAKE_GEN) -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	  -DQUILLMERE_FUZZ=ON -DQUILLMERE_TESTS=OFF -DQUILLMERE_APP=OFF \
	  -DQUILLMERE_HEADER_CHECK=OFF
	cmake --build $(BUILD_DIR)/fuzz -j $(JOBS)

fuzz: fuzz-build
	scripts/run-fuzzers $(BUILD_DIR)/fuzz $(FUZZ_SECONDS)

# A short, repeatable run of every fuzz target, part of `make test`; `make fuzz` explores.
fuzz-smoke: fuzz-build
	scripts/run-fuzzers $(BUILD_DIR)/fuzz 30 4000

# Every screen of the app, light and dark, rendered without a display into build/screenshots/.
screenshots: deps
	cmake -S . -B $(BUILD_DIR)/debug $(CMAKE_GEN) -DCMAKE_BUILD_TYPE=Debug -DQUILLMERE_SANITIZE=ON
	cmake --build $(BUILD_DIR)/debug --target quillmere-screenshots -j $(JOBS)
	QT_QPA_PLATFORM=offscreen $(BUILD_DIR)/debug/app/quillmere-screenshots $(BUILD_DIR)/screenshots

# The Debian package (quillmere_VERSION_ARCH.deb in build/package), dependencies from the
# shared libraries the programs link.
package: deps
	cmake -S . -B $(BUILD_DIR)/package $(CMAKE_GEN) -DCMAKE_BUILD_TYPE=Release \
	  -DCMAKE_INSTALL_PREFIX=/usr -DQUILLMERE_TESTS=OFF -DQUILLMERE_HEADER_CHECK=OFF
	cmake --build $(BUILD_DIR)/package -j $(JOBS)
	cd $(BUILD_DIR)/package && cpack -G DEB

format:
	git ls-files '*.cpp' '*.h' | xargs clang-format -i

clean:
	rm -rf $(BUILD_DIR)
