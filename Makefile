# A front end to CMake, the tests and the tools.
PREFIX ?= /usr/local
JOBS ?= $(shell nproc)
FUZZ_SECONDS ?= 60

# Configures once; afterwards the build sees for itself when that is due again.
build = test -e build/$(1)/build.ninja || cmake --preset $(1); cmake --build --preset $(1) -j $(JOBS)
test = ctest --preset $(1) -j $(JOBS)

.PHONY: help deps build test demo bench asan tsan m32 clang fuzz tidy docs format install abi-update reproducible clean

help: ## List these targets
	@sed -n 's/^\([a-z-]*\):.*## /\1\t/p' Makefile | expand -t 16

deps: ## Install the Debian packages that are missing
	@tools/dependencies

build: deps ## Build with optimisation
	@$(call build,release)

test: build ## Build and run all tests
	@$(call test,release)

demo: build ## Build, and convert real files between many code pages
	@tools/demo build/release

bench: ## Build and run the benchmarks beside their peers; TOPICS chooses
	@tools/dependencies --bench
	@$(call build,bench)
	@bench/run build/bench $(TOPICS)

asan: deps ## Test under the address and undefined-behaviour sanitizers
	@$(call build,asan)
	@$(call test,asan)

tsan: deps ## Test under the thread sanitizer
	@$(call build,tsan)
	@$(call test,tsan)

m32: ## Test the memory modules with 32-bit pointers
	@tools/dependencies --m32
	@$(call build,m32)
	@$(call test,m32)

clang: ## Build without optimisation and test, with clang++
	@tools/dependencies --clang
	@$(call build,clang)
	@$(call test,clang)

fuzz: ## Run each fuzz target for FUZZ_SECONDS, by default 60
	@tools/dependencies --fuzz
	@$(call build,fuzz)
	@tools/fuzz build/fuzz $(FUZZ_SECONDS)

tidy: ## Check all sources with clang-tidy
	@tools/dependencies --tidy
	@test -e build/clang/build.ninja || cmake --preset clang
	@tools/tidy build/clang

docs: ## Build the site of the headers and pages in build/docs/html
	@tools/dependencies --docs
	@tools/docs

format: ## Format all sources
	@tools/dependencies --tidy
	@git ls-files '*.h' '*.cpp' | xargs clang-format -i

install: build ## Install the libraries, headers, tovconv and dirload; PREFIX and DESTDIR say where
	@cmake --install build/release --prefix $(PREFIX)

abi-update: build ## Write the lists of exported symbols in tests/abi anew
	@cmake --build build/release --target abi-update

reproducible: deps ## Build the last commit in two places and compare the libraries
	@tools/reproducible

clean: ## Remove all that was built
	@rm -rf build
