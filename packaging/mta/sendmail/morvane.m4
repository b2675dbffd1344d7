divert(-1)dnl
# /etc/mail/morvane.m4, which the end of sendmail.mc includes.
#
# The mailer "morvane" starts the gateway and speaks SMTP to it: that is what a mailer without $u in its arguments
# does. It runs as the owner of the home.
#
# F= m many recipients, D F M n Date, From, Message-ID and no "From " line, u upper case in names, X dots at line
# starts doubled, 8 eight-bit text as it is. L=0: lines of any length.
divert(0)dnl
MAILER_DEFINITIONS
Mmorvane,	P=/usr/local/bin/unix.in, F=mDFMnuX8, U=morvane:morvane, S=EnvFromSMTP/HdrFromSMTP, R=EnvToSMTP,
		E=\r\n, L=0, T=DNS/RFC822/SMTP,
		A=unix.in
