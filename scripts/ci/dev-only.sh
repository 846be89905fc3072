# Sourced by the CI stages that rerun the suite on another build (tsan, armhf,
# release). The tests named here check what the tools print against a schema
# and the docs' command lines; what they check depends on neither sanitizer,
# word size nor optimisation, and each runs every scenario end to end, so the
# dev stage runs them once and the other stages leave them out.
dev_only='^(style\..*|Cli\.JsonLinesKeepTheirSchema|Docs\.EveryToolCommandRunsAsWritten)$'
